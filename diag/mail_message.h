/// @file
/// The mail message that is being composed, and the two ways it can leave.

#pragma once

#include "base/crt_stdio.h"

#include "general/message_log.h"
#include "general/queue.h"

namespace general {

struct MailMessage {
    char *recipients;
    char *subject;
    char *bodyName;
    FILE *body;         ///< null until there is body text
    Queue *attachments; ///< of heap copies of paths; null until there is one
};

constexpr const char *mailReporter = "QVSMail";

/// Logs a failure, in the manner of printf.
/// @return false, for the caller to hand on
template<typename... Arguments>
bool failed(const char *format, Arguments... arguments)
{
    LogPrintf(mailReporter, format, arguments...);
    return false;
}

inline const char *subjectOf(const MailMessage &message)
{
    return message.subject == nullptr ? "QVSMail (no subject)" : message.subject;
}

/// Both send a message that has recipients and a body, and may change its texts in place.
/// @return false, logged, when it could not be handed over
bool sendByCommand(MailMessage &message);
bool sendByMapi(MailMessage &message);

} // namespace general
