/// @file
/// Catches what a copy of the library logs, in place of the event log.

#pragma once

#include "tests/support/import_hook.h"

#include <vector>

class CapturedEvents {
public:
    explicit CapturedEvents(void *module = nullptr) : hook_("ReportEventA", &capture, module) { take(); }
    /// "who: text" of every message since the last call.
    static std::vector<std::string> take() { return std::exchange(texts_, {}); }

private:
    static BOOL WINAPI capture(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR *strings, LPVOID)
    {
        return texts_.push_back(std::string(strings[0]) + ": " + strings[1]), TRUE;
    }
    static inline std::vector<std::string> texts_;
    test_support::ImportHook hook_;
};
