/// @file
/// Replaces single entries of general.dll's import table in the running test process, so that the
/// shipped DLL, unchanged, meets failing system calls. Windows build only.

#pragma once

#include "tests/support/fault_count.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <windows.h>

namespace test_support {

/// The loaded general.dll calls `replacement` instead of one imported function for as long as the
/// hook lives. Hooks on one import are undone in reverse order of their making.
class ImportHook {
public:
    /// @param name         the imported function's name, e.g. "CreateEventA". A name that
    ///                     general.dll does not import ends the test program with a message
    /// @param replacement  a function of exactly the imported one's type and calling convention
    /// @param module       another copy of the library, such as FreshLibrary's; null for general.dll
    template<typename Function>
    ImportHook(const char *name, Function *replacement, void *module = nullptr)
        : ImportHook(name, reinterpret_cast<void *>(replacement), module, 0)
    {
    }
    ~ImportHook();
    ImportHook(const ImportHook &) = delete;
    ImportHook &operator=(const ImportHook &) = delete;

    /// The function that the hook replaced, for replacements that pass calls on.
    template<typename Function>
    Function *original() const
    {
        return reinterpret_cast<Function *>(original_);
    }

private:
    ImportHook(const char *name, void *replacement, void *module, int);

    void **entry_;
    void *original_;
};

template<typename Lambda, typename Result, typename... Arguments>
struct WinapiFunction {
    static Result WINAPI call(Arguments... arguments) { return Lambda{}(arguments...); }
};

/// The function that a lambda without captures stands for, in the system's calling convention:
///
///     ImportHook hook("GetTickCount", winapi([] { return DWORD{5}; }));
template<typename Lambda>
auto winapi(Lambda)
{
    return []<typename Result, typename... Arguments>(Result (Lambda::*)(Arguments...) const) {
        return &WinapiFunction<Lambda, Result, Arguments...>::call;
    }(&Lambda::operator());
}

/// Makes a copy of the library find other functions than those of the libraries that it loads on first
/// use: `FoundFunctions found({{"timeGetTime", winapi(...)}, {"timeBeginPeriod", nullptr}})`. One at a time.
class FoundFunctions {
public:
    struct Function {
        Function(std::nullptr_t) {} ///< the library lacks it
        template<typename Type>
        Function(Type *function) : address(reinterpret_cast<FARPROC>(reinterpret_cast<void *>(function)))
        {
        }
        FARPROC address = nullptr;
    };
    explicit FoundFunctions(std::map<std::string, Function> functions, void *module = nullptr)
        : hook_("GetProcAddress", find, module)
    {
        functions_ = std::move(functions);
    }

private:
    static FARPROC WINAPI find(HMODULE library, LPCSTR name)
    {
        auto found = functions_.find(name);
        return found == functions_.end() ? GetProcAddress(library, name) : found->second.address;
    }
    static inline std::map<std::string, Function> functions_;
    ImportHook hook_;
};

/// Makes the n-th call (from 1) of one import of general.dll fail, and passes every other call on.
///
///     FailingImport<BOOL WINAPI(HANDLE)> failing("SetEvent", FALSE, 2);
///
/// One object per function type may live at a time. Calls are counted without a lock: hook what
/// one thread calls.
template<typename Signature>
class FailingImport;

template<typename Result, typename... Arguments>
class FailingImport<Result WINAPI(Arguments...)> {
public:
    FailingImport(const char *name, Result failure, int failingCall, DWORD lastError = 0)
        : failure_(failure), failingCall_(failingCall), lastError_(lastError)
    {
        active_ = this;
        hook_.emplace(name, &replacement);
    }

    ~FailingImport()
    {
        if (failed())
            countFault("calls_failed");
    }
    FailingImport(const FailingImport &) = delete;
    FailingImport &operator=(const FailingImport &) = delete;

    /// How many times the function was called so far.
    int calls() const { return calls_; }
    /// Whether the failure has been dealt out.
    bool failed() const { return failingCall_ > 0 && calls_ >= failingCall_; }

private:
    using Function = Result WINAPI(Arguments...);

    static Result WINAPI replacement(Arguments... arguments)
    {
        if (++active_->calls_ != active_->failingCall_)
            return active_->hook_->template original<Function>()(arguments...);
        SetLastError(active_->lastError_);
        return active_->failure_;
    }

    static inline FailingImport *active_ = nullptr;
    Result failure_;
    int failingCall_;
    DWORD lastError_;
    int calls_ = 0;
    std::optional<ImportHook> hook_;
};

} // namespace test_support
