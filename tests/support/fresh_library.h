/// @file
/// A copy of general.dll in which nothing has been called yet, for what the library keeps for the
/// life of a process. Windows build only.

#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace test_support {

/// Loads the copy anew and unloads it. One at a time; hooks on it must be gone before.
class FreshLibrary {
public:
    FreshLibrary() : module_(LoadLibraryA(copy().c_str()))
    {
        if (module_ == nullptr) {
            std::fprintf(stderr, "cannot load %s\n", copy().c_str());
            std::abort();
        }
    }
    ~FreshLibrary() { FreeLibrary(module_); }
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
    /// The copy's path, in the folder for temporary files; it is removed when the process ends.
    static const std::string &copy()
    {
        static const struct Copy {
            Copy()
            {
                char original[MAX_PATH], folder[MAX_PATH];
                GetModuleFileNameA(LoadLibraryA("general.dll"), original, sizeof original);
                GetTempPathA(sizeof folder, folder);
                path = folder + ("fresh" + std::to_string(GetCurrentProcessId())) + ".dll";
                CopyFileA(original, path.c_str(), FALSE);
            }
            ~Copy() { DeleteFileA(path.c_str()); }
            std::string path;
        } made;
        return made.path;
    }

    HMODULE module_;
};

} // namespace test_support
