/* One connection of the shared-memory queue, down to the single store, for the model checker Spin.
 *
 * A writer sends BYTES bytes through a ring of CAPACITY and destroys its end; a reader removes until the
 * connection is closed. Every wait picks any of the ways that the library offers. Every run must let both
 * come to their end: what is left asleep is a deadlock to Spin.
 *
 *   -DKILLS          one process, the connector, dies between any two of its steps. The other one has chosen
 *                    CLOSE and must come to its end all the same
 *   -DKILLS -DACCEPTOR  the same, but it is the acceptor that dies
 *   -DBREAK=...      turns two steps round, each of which the checker must find:
 *                    MASK_LATE   select lets go of the mutex before it stores the wait mask
 *                    CLEAR_FIRST waking clears the wait mask's bit before it sets the event (with KILLS)
 *                    RESET_LATE  enumerate lets go of the mutex before it resets the event
 *                    HALF_CLOSED the connector's watcher says nothing where one ring is closed (ACCEPTOR)
 */

#define CAPACITY 2
#ifndef BYTES
#define BYTES 3
#endif

#define READ 1
#define WRITE 2
#define CLOSE 32

#define MASK_LATE 1
#define CLEAR_FIRST 2
#define RESET_LATE 3
#define HALF_CLOSED 4
#ifndef BREAK
#define BREAK 0
#endif

mtype = { OK, FULL, EMPTY, CLOSED, BAD, NONE };

#define WRITER 0
#define READER 1
#define PEER (1 - me)
#define FREE 3
#define WATCHER 2

/* The mutex. Whoever dies with it leaves it abandoned to the next. */
byte owner = FREE;
bool abandoned;

/* The header of the ring from writer to reader, and both sides' words. The other ring stays empty. */
byte readPos, writePos, count;
bool blocked;
bool closed[2];
byte waitMask[2], eventMask[2], pending[2];

/* The manual-reset events: what select sleeps on, and what events are raised on. */
bool wake[2], event[2];

bool told[2]; /* an enumeration has handed out CLOSE */

/* What the checker knows and the processes do not. */
byte sent, received;
byte doomed, victim = FREE; /* who will die; who dies now */
bool dead[2], quit[2];
bool asleep[2];
bool sleptAtDeath;         /* a select was asleep when its peer died: it must be woken */

#define plausible(r, w, c) (c <= CAPACITY && (r + c) % CAPACITY == w)

inline take(status)
{
    atomic { owner == FREE -> owner = me; status = (abandoned -> BAD : OK); abandoned = false }
    if
    :: status == BAD -> owner = FREE
    :: else
    fi
}

inline release()
{
    owner = FREE
}

inline wakeFor(side, bits)
{
    if
    :: (waitMask[side] & bits) != 0 ->
        if
        :: BREAK != CLEAR_FIRST -> wake[side] = true; waitMask[side] = waitMask[side] & ~bits
        :: BREAK == CLEAR_FIRST -> waitMask[side] = waitMask[side] & ~bits; wake[side] = true
        fi
    :: else
    fi
}

inline raise(side, bits)
{
    if
    :: (eventMask[side] & bits) != 0 ->
        if
        :: pending[side] == 0 -> event[side] = true
        :: else
        fi;
        pending[side] = pending[side] + bits
    :: else
    fi
}

/* A header that cannot be true counts as that of a closed and empty ring. */
#define seenClosed (closed[WRITER] || !plausible(readPos, writePos, count))

inline add(status)
{
    take(status);
    if
    :: status == BAD
    :: status == OK && seenClosed -> status = CLOSED; release()
    :: status == OK && !seenClosed && count == CAPACITY -> blocked = true; status = FULL; release()
    :: status == OK && !seenClosed && count < CAPACITY ->
        if
        :: part = 1
        :: part = 2
        fi;
        part = (part > CAPACITY - count -> CAPACITY - count : part);
        part = (part > BYTES - sent -> BYTES - sent : part);
        if
        :: count == 0 -> wakeFor(READER, READ); raise(READER, READ)
        :: else
        fi;
        writePos = (writePos + part) % CAPACITY;
        d_step { count = count + part; sent = sent + part };
        release()
    fi
}

inline remove(status)
{
    take(status);
    if
    :: status == BAD
    :: status == OK && (seenClosed && (count == 0 || !plausible(readPos, writePos, count))) -> status = CLOSED; release()
    :: status == OK && !seenClosed && count == 0 -> status = EMPTY; release()
    :: status == OK && plausible(readPos, writePos, count) && count != 0 ->
        if
        :: part = 1
        :: part = 2
        fi;
        part = (part > count -> count : part);
        left = count - part;
        received = received + part;
        readPos = (left == 0 -> 0 : (readPos + part) % CAPACITY);
        if
        :: left == 0 -> writePos = 0
        :: else
        fi;
        count = left;
        if
        :: left != 0 -> raise(READER, READ)
        :: else
        fi;
        wakeFor(WRITER, WRITE);
        if
        :: blocked -> raise(WRITER, WRITE); blocked = false
        :: else
        fi;
        release()
    fi
}

/* Both wait for reading as well, since that is what a peer's end wakes. The writer's incoming ring is empty. */
#define wanted (me == WRITER -> READ | WRITE : READ)
#define readable (me == WRITER -> closed[READER] : (count != 0 || seenClosed))
#define writable (me == WRITER && !seenClosed && count < CAPACITY)

/* Reads the words one by one and without the mutex; ends with what it saw come true. */
inline lookOut()
{
    seen = 0;
    do
    :: seenC = closed[WRITER]; seenR = readPos; seenW = writePos; seenN = count;
        if
        :: seenC || closed[READER] || !plausible(seenR, seenW, seenN) -> break
        :: else
        fi;
        if
        :: me == WRITER && seenN < CAPACITY -> seen = WRITE; break
        :: me == READER && seenN != 0 -> seen = READ; break
        :: else
        fi
    :: break
    od
}

inline selectCall(status)
{
    promised = false;
    seen = 0;
    if
    :: lookOut()
    :: true
    fi;
    if
    :: seen != 0 -> promised = true; status = OK; goto selected
    :: else
    fi;
    take(status);
    if
    :: status == BAD -> goto selected
    :: else
    fi;
    if
    :: readable || writable -> promised = true; release(); goto selected
    :: else
    fi;
    if
    :: BREAK == MASK_LATE -> release(); waitMask[me] = wanted
    :: else -> waitMask[me] = wanted; release()
    fi;
    if
    :: isLimited = true
    :: isLimited = false
    fi;
    asleep[me] = true;
    if
    :: atomic { wake[me] && owner == FREE ->
            owner = me; status = (abandoned -> BAD : OK); abandoned = false; asleep[me] = false; sleptAtDeath = false }
        if
        :: status == BAD -> release(); goto selected
        :: else
        fi
    :: isLimited -> atomic { asleep[me] = false; sleptAtDeath = false } /* the time is out; it is that of the signal alone */
        if
        :: wake[me] -> take(status);
            if
            :: status == BAD -> goto selected
            :: else
            fi
        :: else -> status = NONE; goto selected
        fi
#ifndef ACCEPTOR
    :: dead[PEER] && !sleptAtDeath -> asleep[me] = false; status = NONE; goto selected /* begun too late to be woken */
#endif
    fi;
    waitMask[me] = 0;
    wake[me] = false;
    release();
selected:
    skip
}

inline eventSelect(status, mask)
{
    take(status);
    if
    :: status == BAD
    :: else ->
        due = 0;
        if
        :: (mask & ~eventMask[me] & WRITE) != 0 && writable -> due = due + WRITE
        :: else
        fi;
        if
        :: (mask & ~eventMask[me] & READ) != 0 && me == READER && count != 0 && plausible(readPos, writePos, count) ->
            due = due + READ
        :: else
        fi;
        if
        :: (mask & ~eventMask[me] & CLOSE) != 0 && (me == WRITER -> closed[READER] : seenClosed) -> due = due + CLOSE
        :: else
        fi;
        if
        :: (pending[me] & mask) == 0 && due != 0 -> event[me] = true
        :: (pending[me] & mask) == 0 && due == 0 && pending[me] != 0 -> event[me] = false
        :: else
        fi;
        eventMask[me] = mask;
        pending[me] = (pending[me] & mask) + due;
        release()
    fi
}

inline enumEvents(status)
{
    take(status);
    if
    :: status == BAD
    :: else ->
        told[me] = told[me] || pending[me] >= CLOSE;
        pending[me] = 0;
        if
        :: BREAK == RESET_LATE -> release(); event[me] = false
        :: else -> event[me] = false; release()
        fi
    fi
}

inline destroy(status)
{
    do
    :: take(status);
        if
        :: status == OK -> break
        :: else
        fi
    od;
    closed[me] = true;
    closed[PEER] = true;
    if
    :: me == READER || count == 0 -> wakeFor(PEER, READ)
    :: else
    fi;
    raise(PEER, CLOSE);
    release();
    quit[me] = true
}

/* Any way to wait. Where processes may die, CLOSE has been chosen before. */
inline await(status)
{
    if
    :: selectCall(status)
    :: if
        :: eventMask[me] == 0 -> eventSelect(status, (CLOSE | (me == WRITER -> WRITE : READ)))
        :: eventMask[me] != 0 -> status = OK /* an else would be that of all ways to wait */
        fi;
        promised = false;
        if
        :: status == OK -> event[me]; enumEvents(status)
        :: else
        fi
#ifndef KILLS
    :: eventMask[me] != 0 -> eventSelect(status, 0)
#endif
    fi
}

#define forgetLocals status = OK; part = 0; left = 0; due = 0; seen = 0; seenR = 0; seenW = 0; seenN = 0; seenC = false; isLimited = false

inline dieOn()
{
    atomic {
        dead[me] = true;
        sleptAtDeath = asleep[PEER];
        if
        :: owner == me -> owner = FREE; abandoned = true
        :: else
        fi
    }
}

proctype Writer()
{
    byte me = WRITER, part, left, due, seen, seenR, seenW, seenN;
    bool seenC, promised, isLimited;
    mtype status = OK;
    {
#ifdef KILLS
        do
        :: eventSelect(status, (WRITE | CLOSE));
            if
            :: status == OK -> break
            :: else
            fi
        od;
#endif
        do
        :: sent == BYTES || told[me] -> break
        :: else -> add(status);
            assert(!(promised && status == FULL));
            promised = false;
            if
            :: status == CLOSED -> break
            :: status == FULL -> await(status)
            :: else
            fi;
            d_step { forgetLocals }
        od;
        destroy(status)
    } unless { atomic { victim == me && !quit[me] -> dieOn() } }
}

proctype Reader()
{
    byte me = READER, part, left, due, seen, seenR, seenW, seenN;
    bool seenC, promised, isLimited;
    mtype status = OK;
    {
#ifdef KILLS
        do
        :: eventSelect(status, (READ | CLOSE));
            if
            :: status == OK -> break
            :: else
            fi
        od;
#endif
        do
        :: remove(status);
            assert(!(promised && status == EMPTY));
            promised = false;
            if
            :: status == CLOSED || (status == EMPTY && told[me]) -> assert(victim != FREE || received == BYTES); break
            :: status == OK -> goto leaving /* before it has read everything */
            :: status == OK
            :: status == BAD
            :: !told[me] && (status == EMPTY || (status == OK && eventMask[me] != 0)) -> /* one remove per enumeration */
                await(status)
            fi;
            d_step { forgetLocals }
        od;
leaving:
        destroy(status)
    } unless { atomic { victim == me && !quit[me] -> dieOn() } }
}

#ifdef KILLS
/* The survivor's watcher, told of the other one's end by the system. */
proctype Watcher(byte side)
{
    byte me = WATCHER;
    bool isDestroyed;
end_nobodyDies:
    dead[1 - side];
    atomic { owner == FREE -> owner = me }
    if
#ifdef ACCEPTOR
    :: abandoned = false;
        if
        :: BREAK == HALF_CLOSED && closed[1 - side]
        :: BREAK != HALF_CLOSED || !closed[1 - side] ->
            isDestroyed = closed[side] && closed[1 - side]; /* a destroy, which does not wake who waits to write */
            closed[side] = true;
            closed[1 - side] = true;
            wakeFor(side, (isDestroyed -> READ : READ | WRITE));
            if
            :: !told[side] && pending[side] < CLOSE -> raise(side, CLOSE)
            :: else
            fi
        fi;
        release()
#else
    :: abandoned -> abandoned = false;
        raise(side, CLOSE);
        if
        :: waitMask[side] != 0 -> wake[side] = true
        :: else
        fi;
        if
        :: (eventMask[side] & CLOSE) != 0 -> event[side] = true
        :: else
        fi;
        atomic { owner = FREE; abandoned = true } /* it ends with the mutex */
    :: else ->
        if
        :: side == WRITER || count == 0 -> wakeFor(side, READ)
        :: else
        fi;
        raise(side, CLOSE);
        release()
#endif
    fi
}
#endif

init
{
    atomic {
        run Writer();
        run Reader();
#ifdef KILLS
        if
        :: run Watcher(READER); doomed = WRITER
        :: run Watcher(WRITER); doomed = READER
        fi
#endif
    }
#ifdef KILLS
#ifndef ACCEPTOR
    eventMask[1 - doomed] != 0; /* a CLOSE that is chosen later is not raised for a death */
#endif
    victim = doomed             /* whenever this comes to pass */
#endif
}
