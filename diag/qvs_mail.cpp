#include "base/crt_stdio.h"

#include "base/module_id.h"
#include "base/string_copy.h"
#include "diag/mail_message.h"

#include "general/mail.h"

#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace {

using general::failed;

general::MailMessage message;

/// Puts a copy in place of an earlier text, or nothing when there is no text or no memory.
bool replaceText(char *&kept, const char *text)
{
    free(kept);
    kept = text == nullptr ? nullptr : general::copyString(text);
    return text == nullptr || kept != nullptr;
}

/// Opens a new file, which a started command does not inherit: it could not be deleted while that runs.
FILE *createFile(const char *name)
{
    int descriptor = _open(name, _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (descriptor < 0)
        return nullptr;
    FILE *file = _fdopen(descriptor, "wb+");
    if (file != nullptr)
        return file;
    _close(descriptor);
    remove(name);
    return nullptr;
}

/// Opens the body file if there is none yet. The runtime may hand one name to two processes at once;
/// the one that comes second asks again.
bool openBody()
{
    constexpr int attempts = 100;
    char folder[MAX_PATH + 1] = "";
    if (message.body == nullptr)
        GetTempPathA(sizeof folder, folder);
    for (int i = 0; message.body == nullptr && i < attempts; ++i) {
        message.bodyName = _tempnam(folder, "QVSMail");
        if (message.bodyName == nullptr)
            return false;
        message.body = createFile(message.bodyName);
        if (message.body != nullptr)
            return true;
        bool isTaken = errno == EEXIST;
        free(message.bodyName);
        message.bodyName = nullptr;
        if (!isTaken)
            return false;
    }
    return message.body != nullptr;
}

/// Copies an open file of known size to the body, by way of a buffer that holds all of it.
bool copyThrough(char *buffer, size_t size, FILE *source, const char *path)
{
    if (QVSMailPrint("%s", "") == 0)
        return failed("copy_body_from_file(): QVSMailPrint failed");
    size_t count = fread(buffer, 1, size, source);
    if (count != size || fwrite(buffer, 1, size, message.body) != size)
        return failed("copy_body_from_file(): read/write of file %s failed (%lu bytes read)", path,
                      static_cast<unsigned long>(count));
    return true;
}

bool appendOpenFile(FILE *source, const char *path)
{
    struct _stati64 status = {};
    if (_fstati64(_fileno(source), &status) != 0)
        return failed("copy_body_from_file(): fstat() on file %s failed", path);
    int64_t wanted = status.st_size + 1;
    auto size = static_cast<size_t>(wanted);
    char *buffer = size == static_cast<uint64_t>(wanted) ? static_cast<char *>(malloc(size)) : nullptr;
    if (buffer == nullptr) // %I64d writes what %d does, and the sizes that 32 bits cannot hold
        return failed("copy_body_from_file(): malloc() of %I64d bytes failed", wanted);
    bool isCopied = copyThrough(buffer, size - 1, source, path);
    free(buffer);
    return isCopied;
}

void discardBody()
{
    if (message.body == nullptr)
        return;
    fclose(message.body);
    remove(message.bodyName);
    free(message.bodyName);
    message.body = nullptr;
    message.bodyName = nullptr;
}

void discardAttachments()
{
    char *path = nullptr;
    while (QueRmv(message.attachments, &path) == QUE_OK)
        free(path);
    QueDestroy(message.attachments);
    message.attachments = nullptr;
}

bool send(bool viaCommand)
{
    if (message.recipients == nullptr || message.recipients[strspn(message.recipients, " ")] == 0)
        return failed("QVSMailClose: there are no recipients");
    return viaCommand ? general::sendByCommand(message) : general::sendByMapi(message);
}

} // namespace

int QVSMailTo(const char *text)
{
    return replaceText(message.recipients, text);
}

int QVSMailSubject(const char *text)
{
    return replaceText(message.subject, text);
}

int QVSMailPrint(const char *format, ...)
{
    if (format == nullptr || !openBody())
        return 0;
    va_list arguments;
    va_start(arguments, format);
    int count = vfprintf(message.body, format, arguments);
    va_end(arguments);
    return count >= 0;
}

int QVSMailBody(const char *path)
{
    FILE *source = path == nullptr ? nullptr : fopen(path, "rb");
    if (source == nullptr)
        return failed("copy_body_from_file(): can't open file %s", path == nullptr ? "(null)" : path);
    bool isAppended = appendOpenFile(source, path);
    fclose(source);
    return isAppended;
}

int QVSMailAttachment(const char *path)
{
    char *copy = path == nullptr ? nullptr : general::copyString(path);
    if (copy == nullptr)
        return 0;
    if (message.attachments == nullptr)
        message.attachments = QueCreate(sizeof copy);
    if (message.attachments == nullptr) {
        free(copy);
        return 0;
    }
    uint32_t code = QueAdd(message.attachments, &copy);
    if (code == QUE_OK)
        return 1;
    free(copy);
    return failed("QVSMailAttachment: QueAdd failed with code %u", code);
}

int QVSMailClose(int viaCommand)
{
    bool isSent = message.body == nullptr || send(viaCommand != 0);
    discardBody();
    discardAttachments();
    replaceText(message.subject, nullptr);
    replaceText(message.recipients, nullptr);
    return isSent;
}
