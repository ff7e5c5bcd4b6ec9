/// @file
/// A copy of general.dll, or of another one, in which nothing has been called yet, for what the library
/// keeps for the life of a process. Windows build only.

#pragma once

#include <windows.h>

#include <string>

namespace test_support {

/// Loads the copy anew and unloads it. One at a time; hooks on it must be gone before.
class FreshLibrary {
public:
    explicit FreshLibrary(const char *name = "general.dll")
    {
        char original[MAX_PATH], folder[MAX_PATH];
        GetModuleFileNameA(LoadLibraryA(name), original, sizeof original);
        GetTempPathA(sizeof folder, folder);
        path_ = folder + ("fresh" + std::to_string(GetCurrentProcessId())) + ".dll";
        CopyFileA(original, path_.c_str(), FALSE);
        module_ = LoadLibraryA(path_.c_str());
    }
    ~FreshLibrary()
    {
        FreeLibrary(module_);
        DeleteFileA(path_.c_str());
    }
    FreshLibrary(const FreshLibrary &) = delete;
    FreshLibrary &operator=(const FreshLibrary &) = delete;

    /// One of its functions: `library.function<decltype(LogName)>("LogName")`.
    template<typename Function>
    Function *function(const char *name) const
    {
        return reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(module_, name)));
    }
    /// For ImportHook.
    void *module() const { return module_; }

private:
    std::string path_;
    HMODULE module_;
};

} // namespace test_support
