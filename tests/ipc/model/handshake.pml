/* The init segment of the shared-memory queue, down to the single store, for the model checker Spin.
 *
 * A client dies between any two steps of its request or of taking its reply; another one, that does not, must
 * come by a reply all the same, as long as both it and the listener go on.
 *
 *   -DBREAK=NO_REPAIR  the listener leaves impossible rings as they are: the checker must find who is never served
 *   -DBREAK=NO_SIGHT   a waiting client relies on its signal alone: the same
 */

#define REQUESTS 3 /* capacities in records */
#define REPLIES 2

#define NO_REPAIR 1
#define NO_SIGHT 2
#ifndef BREAK
#define BREAK 0
#endif

mtype = { OK, NONE, BAD };

#define FREE 0
#define LISTENER 3

/* The mutex. Nobody takes it twice running while another one waits for it. */
byte owner = FREE, last;
bool waits[4];
bool abandoned;
#define othersWait ((me != 1 && waits[1]) || (me != 2 && waits[2]) || (me != LISTENER && waits[LISTENER]))
bool signal;              /* auto-reset: lets one waiting client go */

byte reqRead, reqWrite, reqCount;
byte repRead, repWrite, repCount;

bool dies, served;

#define possible(r, w, c, n) (c <= n && r < n && (r + c) % n == w)
#define requestsPossible possible(reqRead, reqWrite, reqCount, REQUESTS)
#define repliesPossible possible(repRead, repWrite, repCount, REPLIES)

inline take(status)
{
    waits[me] = true;
    atomic {
        owner == FREE && (last != me || !othersWait) ->
            owner = me; last = me; waits[me] = false; status = (abandoned -> BAD : OK); abandoned = false
    }
    if
    :: status == BAD -> owner = FREE
    :: else
    fi
}

inline addRequest(status)
{
    do
    :: take(status);
        if
        :: status == BAD /* connects again */
        :: status == OK && requestsPossible && reqCount < REQUESTS ->
            reqWrite = (reqWrite + 1) % REQUESTS;
            reqCount = reqCount + 1;
            owner = FREE;
            break
        :: else -> owner = FREE /* full, or waits until the listener has put the ring right */
        fi
    od
}

inline takeReply(status)
{
    take(status);
    if
    :: status == BAD
    :: status == OK && (!repliesPossible || repCount == 0) -> status = NONE; owner = FREE
    :: else ->
        left = repCount - 1;
        repRead = (left == 0 -> 0 : (repRead + 1) % REPLIES);
        if
        :: left == 0 -> repWrite = 0
        :: else
        fi;
        repCount = left;
        if
        :: left == 0 -> signal = false
        :: else
        fi;
        owner = FREE
    fi
}

#define showsReply (repliesPossible && repCount != 0)
#define showsNothing (reqCount == 0 && !showsReply)

/* Until there is a signal, looks without the mutex at what the rings show. What is seen as at the look before is
 * looked at once more with the mutex. */
inline awaitReply(status)
{
    sawReply = false;
    sawNothing = false;
    do
    :: atomic { signal -> signal = false }; break
    :: !signal && BREAK != NO_SIGHT && showsReply ->
        if
        :: sawReply -> take(status);
            if
            :: status == BAD
            :: status == OK && showsReply -> owner = FREE; break
            :: else -> owner = FREE
            fi
        :: else -> sawReply = true; sawNothing = false
        fi
    :: !signal && BREAK != NO_SIGHT && showsNothing ->
        if
        :: sawNothing -> take(status);
            if
            :: status == BAD
            :: status == OK && showsNothing -> owner = FREE; addRequest(status); sawNothing = false /* null: connects again */
            :: else -> owner = FREE
            fi
        :: else -> sawNothing = true; sawReply = false
        fi
    od
}

#define clientLocals byte left; bool sawReply, sawNothing; mtype status = NONE

proctype Doomed()
{
    byte me = 1;
    clientLocals;
    {
        addRequest(status);
        awaitReply(status);
        takeReply(status)
    } unless {
        atomic {
            dies;
            waits[me] = false;
            if
            :: owner == me -> owner = FREE; abandoned = true
            :: else
            fi
        }
    }
}

proctype Honest()
{
    byte me = 2;
    clientLocals;
    addRequest(status);
    do
    :: awaitReply(status);
        takeReply(status);
        if
        :: status == OK -> break
        :: else
        fi
    od;
    served = true
}

proctype Listener()
{
    byte me = LISTENER, distance;
    mtype status;
end_idle:
    do
    :: reqCount != 0 || !requestsPossible -> /* so select says */
        take(status);
        if
        :: status == BAD
        :: else ->
            if
            :: BREAK != NO_REPAIR && !requestsPossible ->
                /* The smaller one of count and distance tells the requests of those that live. */
                distance = (reqWrite + REQUESTS - reqRead) % REQUESTS;
                distance = (distance == 0 && reqCount > REQUESTS / 2 -> REQUESTS : distance);
                reqCount = (reqCount < distance -> reqCount : distance);
                reqRead = (reqCount == 0 -> 0 : reqRead);
                reqWrite = (reqRead + reqCount) % REQUESTS
            :: else
            fi;
            if
            :: BREAK != NO_REPAIR && !repliesPossible -> repRead = 0; repWrite = 0; repCount = 0; signal = false
            :: else
            fi;
            if
            :: requestsPossible && reqCount != 0 && repliesPossible && repCount < REPLIES ->
                reqCount = reqCount - 1;
                reqRead = (reqCount == 0 -> 0 : (reqRead + 1) % REQUESTS);
                reqWrite = (reqRead + reqCount) % REQUESTS;
                repWrite = (repWrite + 1) % REPLIES;
                repCount = repCount + 1;
                signal = true
            :: else
            fi;
            owner = FREE
        fi
    od
}

init
{
    atomic { run Listener(); run Doomed(); run Honest() };
    dies = true /* whenever this comes to pass */
}

ltl everybodyAliveIsServed { <> served }
