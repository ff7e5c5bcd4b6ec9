# What every script, test and program under Wine has around it, whoever starts it and from where: the
# settings of a user's own that would reach what is built, or change what tools print, are taken away.
# shellcheck shell=sh

# For cd and the shells; for sort, grep's classes, messages and names of files; for git inside a hook.
unset CDPATH BASH_ENV ENV POSIXLY_CORRECT LANGUAGE GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE
# UTC, because a Windows program's runtime reads this variable too, and other zones in a form of its own.
export LC_ALL=C.UTF-8 TZ=UTC

# What compilers, CMake, pkg-config and zip take from the environment.
unset CPPFLAGS CFLAGS CXXFLAGS LDFLAGS RCFLAGS CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH
unset COMPILER_PATH GCC_EXEC_PREFIX DESTDIR CMAKE_GENERATOR CMAKE_TOOLCHAIN_FILE CMAKE_BUILD_TYPE
unset CMAKE_PREFIX_PATH CMAKE_INSTALL_MODE CMAKE_CONFIG_TYPE CMAKE_EXPORT_COMPILE_COMMANDS
unset PKG_CONFIG_PATH PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR ZIP ZIPOPT UNZIP UNZIPOPT
unset PYTHONPATH PYTHONHOME PYTHONOPTIMIZE
unset CCACHE_PREFIX CCACHE_SLOPPINESS CCACHE_NOHASHDIR CCACHE_EXTRAFILES
export CCACHE_BASEDIR= # none, whatever ccache's own file says: it would rewrite paths
