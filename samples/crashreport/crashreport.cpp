// A program that goes down on request, and tells where: error text, signal, stack with files and lines, modules.

#include <stdio.h>

#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include "general.h"
#include "general/options.hpp"
#include "general/text.hpp"
#include "general/trace.hpp"

#include <iterator>
#include <string>

#include <windows.h>

#include <tlhelp32.h>

namespace {

constexpr const char *usage =
    "Usage: crashreport [-m ADDRESS] [-s SUBJECT] [-o FILE] WHAT\n"
    "Does some work that fails, and reports where. WHAT is one of\n"
    "\n"
    "  null-write   write through a null pointer\n"
    "  divide       divide by zero\n"
    "  illegal      execute what is no instruction\n"
    "  abort        call abort()\n"
    "  assert       report a failed assertion, and go on\n"
    "  nothing      end well\n"
    "\n"
    "  -m ADDRESS   mail the report by the command qvsmail, to addresses separated by commas\n"
    "  -s SUBJECT   the mail's subject (default: crashreport: SIGNAL)\n"
    "  -o FILE      write the report to FILE instead of standard output\n"
    "  -h, --help\n"
    "\n"
    "Exit status: 0 when the program ends well; 1 when it went down and was reported; 3 when the\n"
    "report could not be written or mailed; 2 for a wrong command line.\n";

enum ExitStatus { endedWell = 0, reported = 1, wrongCommandLine = 2, notReported = 3 };

struct Options {
    const char *recipients = nullptr;
    const char *subject = nullptr;
    const char *file = nullptr;
};

Options options; // what the report needs when it is written
constexpr const char *who = "crashreport";
constexpr int mostFrames = 32;

// The work, a few calls deep.

volatile int divisor = 0;
int *volatile nowhere = nullptr;

[[gnu::noinline]] int writeThroughNull(int record)
{
    *nowhere = record;
    return record;
}

[[gnu::noinline]] int divideByZero(int record)
{
    return record / divisor;
}

[[gnu::noinline]] int executeNonsense(int record)
{
    asm volatile("ud2");
    return record;
}

[[gnu::noinline]] int giveUp(int)
{
    abort();
}

[[gnu::noinline]] int assertSomething(int record)
{
    if (record != 0)
        qvs_assert("record == 0", who, __LINE__);
    return record;
}

[[gnu::noinline]] int doNothing(int record)
{
    return record;
}

using Step = int (*)(int record);

struct Fault {
    const char *name;
    Step step;
};

constexpr Fault faults[] = {{"null-write", writeThroughNull}, {"divide", divideByZero},
                            {"illegal", executeNonsense},     {"abort", giveUp},
                            {"assert", assertSomething},      {"nothing", doNothing}};

[[gnu::noinline]] int processRecord(Step step, int record)
{
    return step(record) + 1;
}

[[gnu::noinline]] int processAll(Step step)
{
    int sum = 0;
    for (int record = 1; record <= 3; ++record)
        sum += processRecord(step, record);
    return sum;
}

// The report.

std::string report;

[[gnu::format(printf, 1, 2)]] void add(const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    line[sizeof line - 1] = 0;
    report += line;
}

template<typename Visit>
void forEachModule(Visit visit)
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    MODULEENTRY32 module = {};
    module.dwSize = sizeof module;
    for (BOOL more = Module32First(snapshot, &module); more != FALSE; more = Module32Next(snapshot, &module))
        visit(module);
    CloseHandle(snapshot);
}

void addFrame(int number, const QVSTraceEntry &entry)
{
    std::string place = entry.symbol != nullptr ? entry.symbol : "?";
    std::string name = entry.module != nullptr ? entry.module : "?";
    if (entry.symbol == nullptr)
        forEachModule([&](const MODULEENTRY32 &candidate) {
            auto base = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(candidate.modBaseAddr));
            if (entry.address - base < candidate.modBaseSize) {
                name = candidate.szModule;
                place = "+" + std::to_string(entry.address - base);
            }
        });
    add("  %2d  %08x  %s  %s\n", number, static_cast<unsigned>(entry.address), name.c_str(), place.c_str());
}

void addOwnStack()
{
    uint32_t addresses[mostFrames];
    int count = QVSgetStackTrace(addresses, mostFrames);
    for (int i = 0; i < count; ++i)
        addFrame(i, general::LookedUp(addresses[i], true));
}

void addModules()
{
    add("modules:\n");
    forEachModule([](const MODULEENTRY32 &module) {
        auto base = static_cast<unsigned>(reinterpret_cast<uintptr_t>(module.modBaseAddr));
        add("  %08x  %7lu KB  %s\n", base, module.modBaseSize / 1024, module.szExePath);
    });
}

int signalOf(DWORD exception)
{
    switch (exception) {
    case EXCEPTION_ACCESS_VIOLATION:
        return SIGSEGV;
    case EXCEPTION_ILLEGAL_INSTRUCTION:
        return SIGILL;
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        return SIGFPE;
    default:
        return static_cast<int>(exception);
    }
}

/// The system has texts for its errors; an exception has to be translated into one first.
std::string textOf(DWORD exception)
{
    char number[24];
    snprintf(number, sizeof number, "exception %08lx", exception);
    auto translate = general::symbol<ULONG(WINAPI *)(DWORD)>("ntdll", "RtlNtStatusToDosError");
    DWORD error = translate ? (*translate)(exception) : exception;
    if (error == exception || error == ERROR_MR_MID_NOT_FOUND)
        return number;
    return number + std::string(", ").append(general::errorText(error));
}

bool writeReport()
{
    FILE *file = options.file == nullptr ? stdout : fopen(options.file, "w");
    if (file == nullptr) {
        eprintf("crashreport: cannot write %s: %s\n", options.file, strerror(errno));
        return false;
    }
    fputs(report.c_str(), file);
    return (file == stdout ? fflush(file) : fclose(file)) == 0;
}

bool mailReport(const char *signalText)
{
    if (options.recipients == nullptr)
        return true;
    std::string subject = options.subject != nullptr ? options.subject : std::string("crashreport: ") + signalText;
    QVSMailTo(options.recipients);
    QVSMailSubject(subject.c_str());
    QVSMailPrint("%s", report.c_str());
    bool isSent = QVSMailClose(1) == 1;
    if (!isSent)
        eprintf("crashreport: qvsmail did not take the report in time; the message log says why\n");
    return isSent;
}

template<typename AddStack>
[[noreturn]] void goDown(int number, const std::string &error, AddStack addStack)
{
    char signalText[16];
    signal_name(number, signalText, sizeof signalText);
    LogPrintf(who, "going down with %s", signalText);
    add("crashreport went down with %s (%d)\nerror: %s\n", signalText, number, error.c_str());
    add("stack:\n");
    addStack();
    addModules();
    bool isReported = writeReport();
    isReported = mailReport(signalText) && isReported;
    ExitProcess(isReported ? reported : notReported);
}

LONG WINAPI onException(EXCEPTION_POINTERS *exception)
{
    DWORD code = exception->ExceptionRecord->ExceptionCode;
    goDown(signalOf(code), textOf(code), [exception, number = 0]() mutable {
        general::traceException(*exception, [&](const auto &entry) { addFrame(number++, entry); });
    });
}

void onAbort(int number)
{
    goDown(number, "the program called abort()", addOwnStack);
}

const Fault *findFault(const char *name)
{
    for (const Fault &fault : faults)
        if (strcmp(fault.name, name) == 0)
            return &fault;
    return nullptr;
}

int complain(const char *text, const char *detail)
{
    eprintf("crashreport: %s%s; see crashreport --help\n", text, detail);
    return wrongCommandLine;
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            fputs(usage, stdout);
            return endedWell;
        }
    for (auto option : general::options(argc, argv, "m:s:o:")) {
        if (option.letter == '?')
            return complain("wrong option", "");
        auto &value = option.letter == 'm' ? options.recipients : option.letter == 's' ? options.subject : options.file;
        value = option.argument;
    }
    auto operands = general::operands(argc, argv);
    if (operands.size() != 1)
        return complain("one WHAT is needed", "");
    const Fault *fault = findFault(operands[0]);
    if (fault == nullptr)
        return complain("there is no fault called ", operands[0]);

    LogName(who);
    LogPrintf(who, "started, to do: %s", fault->name);
    SetUnhandledExceptionFilter(onException);
    signal(SIGABRT, onAbort);
    printf("the work gave %d\n", processAll(fault->step));
    return endedWell;
}
