/// @file
/// Catches what a copy of the library logs: instead of the event log or, on a system that has none, in
/// a log file of its own.

#pragma once

#include "general/message_log.h"
#include "general/validators.h"

#include "tests/support/import_hook.h"

#include <cstdio>
#include <vector>

/// One at a time.
class CapturedEvents {
public:
    /// @param module  null, or a FreshLibrary's, whose log is opened by its first message
    explicit CapturedEvents(void *module = nullptr) : isFresh_(module != nullptr)
    {
        if (iswin95() == 0)
            hook_.emplace("ReportEventA", &report, module);
        else
            hook_.emplace("fopen", &open, module);
        if (iswin95() != 0 && !isFresh_)
            LogName(nullptr);
        take();
    }
    ~CapturedEvents()
    {
        hook_.reset();
        if (std::exchange(file_, nullptr) != nullptr && !isFresh_)
            LogName(nullptr); // the file is closed, and gone
    }
    CapturedEvents(const CapturedEvents &) = delete;
    CapturedEvents &operator=(const CapturedEvents &) = delete;

    /// "who: text" of every message since the last call.
    static std::vector<std::string> take()
    {
        if (file_ != nullptr)
            readFile();
        return std::exchange(texts_, {});
    }

private:
    static BOOL WINAPI report(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR *strings, LPVOID)
    {
        return texts_.push_back(std::string(strings[0]) + ": " + strings[1]), TRUE;
    }

    /// In place of the library's fopen, which opens other files than the log too.
    static FILE *open(const char *name, const char *mode)
    {
        char path[MAX_PATH];
        if (*mode != 'a')
            return std::fopen(name, mode);
        GetTempFileNameA(".", "log", 0, path);
        read_ = 0;
        return file_ = std::fopen(path, "a+TD"); // temporary, deleted when it is closed
    }

    /// Takes lines of the form "Nov 21 16:10:05 QVS: who: <text>" apart.
    static void readFile()
    {
        std::string all;
        std::rewind(file_);
        for (int c = 0; (c = std::fgetc(file_)) != EOF;)
            all += static_cast<char>(c);
        std::fseek(file_, 0, SEEK_END);
        for (size_t end = 0; (end = all.find(">\n", read_)) != std::string::npos; read_ = end + 2) {
            const size_t who = all.find(": ", read_) + 2, text = all.find('<', who);
            texts_.push_back(all.substr(who, text - who) + all.substr(text + 1, end - text - 1));
        }
    }

    static inline std::vector<std::string> texts_;
    static inline FILE *file_;
    static inline size_t read_;
    std::optional<test_support::ImportHook> hook_;
    bool isFresh_;
};
