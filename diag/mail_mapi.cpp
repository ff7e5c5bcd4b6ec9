#include "base/crt_stdio.h"

#include "base/checked_size.h"
#include "base/library_function.h"
#include "base/module_id.h"
#include "diag/mail_message.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <windows.h>

#include <mapi.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

constexpr ULONG noPosition = static_cast<ULONG>(-1); ///< the attachment has no place inside the text

constexpr int64_t longestNote = INT32_MAX - 1; ///< that a block of memory could hold

LPMAPISENDMAIL sendMail; ///< null until first needed

/// Loads the system's mail library, without a box that nobody would be there to click away.
bool loadMapi()
{
    if (sendMail != nullptr)
        return true;
    UINT errorMode = SetErrorMode(SEM_FAILCRITICALERRORS);
    HMODULE library = LoadLibraryA("MAPI32.DLL");
    SetErrorMode(errorMode);
    if (findFunction(library, "MAPISendMail", sendMail))
        return true;
    if (library != nullptr)
        FreeLibrary(library);
    return failed("MAPI GetProcAddress failed");
}

/// What MAPISendMail is handed, with the blocks that belong to it.
class MapiParts {
public:
    MapiParts() = default;
    ~MapiParts()
    {
        free(mail_.lpszNoteText);
        free(mail_.lpRecips);
        free(mail_.lpFiles);
    }
    MapiParts(const MapiParts &) = delete;
    MapiParts &operator=(const MapiParts &) = delete;

    bool reserveNote(FILE *body);
    bool addRecipients(char *list);
    bool addFiles(const Queue *attachments);
    bool readNote(FILE *body);
    bool send(const char *subject);

private:
    MapiMessage mail_ = {};
    size_t noteLength_ = 0;
};

bool MapiParts::reserveNote(FILE *body)
{
    struct _stati64 status = {};
    if (fflush(body) != 0)
        return failed("fflush() of message failed");
    if (_fstati64(_fileno(body), &status) != 0)
        return failed("fstat() of message failed");
    if (status.st_size > longestNote)
        return failed("a message of %I64d bytes is too long for Simple MAPI", status.st_size);
    noteLength_ = static_cast<size_t>(status.st_size);
    mail_.lpszNoteText = static_cast<char *>(malloc(noteLength_ + 1));
    return mail_.lpszNoteText != nullptr ||
           failed("malloc() for message of %d bytes failed", sizeof(char *)); // 4, whatever the length
}

/// Splits the list in place at every comma.
bool MapiParts::addRecipients(char *list)
{
    size_t count = 1;
    for (const char *c = list; *c != 0; ++c)
        count += *c == ',';
    size_t size = SIZE_MAX;
    (void)checkedProduct(count, sizeof *mail_.lpRecips, size);
    mail_.lpRecips = static_cast<MapiRecipDesc *>(malloc(size));
    if (mail_.lpRecips == nullptr)
        return failed("malloc() for recipient list of %d bytes failed", size);
    for (size_t i = 0; i < count; ++i) {
        char *recipient = list;
        list += strcspn(list, ",");
        *list++ = 0; // behind the last recipient the list's own end is written once more
        mail_.lpRecips[i] = MapiRecipDesc{.ulReserved = 0,
                                          .ulRecipClass = MAPI_TO,
                                          .lpszName = recipient,
                                          .lpszAddress = recipient,
                                          .ulEIDSize = 0,
                                          .lpEntryID = nullptr};
    }
    mail_.nRecipCount = count;
    return true;
}

bool MapiParts::addFiles(const Queue *attachments)
{
    uint32_t count = 0;
    QueLength(attachments, &count);
    if (count == 0)
        return true;
    size_t size = count * sizeof *mail_.lpFiles; // less than what the paths take
    mail_.lpFiles = static_cast<MapiFileDesc *>(malloc(size));
    if (mail_.lpFiles == nullptr)
        return failed("malloc() for files of %d bytes failed", size);
    for (uint32_t i = 0; i < count; ++i) {
        mail_.lpFiles[i] = MapiFileDesc{};
        mail_.lpFiles[i].nPosition = noPosition;
        QueLook(attachments, i, &mail_.lpFiles[i].lpszPathName);
    }
    mail_.nFileCount = count;
    return true;
}

bool MapiParts::readNote(FILE *body)
{
    rewind(body);
    size_t count = fread(mail_.lpszNoteText, 1, noteLength_, body);
    mail_.lpszNoteText[count] = 0;
    if (count != noteLength_)
        return failed("fread() of message failed after %lu bytes", count);
    return true;
}

bool MapiParts::send(const char *subject)
{
    mail_.lpszSubject = const_cast<char *>(subject);
    ULONG code = sendMail(0, 0, &mail_, MAPI_LOGON_UI, 0);
    return code == SUCCESS_SUCCESS || failed("MAPISendMail failed with code %lu", code);
}

} // namespace

bool sendByMapi(MailMessage &message)
{
    MapiParts parts;
    if (!loadMapi() || !parts.reserveNote(message.body))
        return false;
    bool hasRecipients = parts.addRecipients(message.recipients);
    bool hasFiles = parts.addFiles(message.attachments);
    bool hasNote = parts.readNote(message.body);
    return hasRecipients && hasFiles && hasNote && parts.send(subjectOf(message));
}

} // namespace general
