// One page about the machine: what the library finds out about processor, system and clocks.

#include "general/chrono.h"
#include "general/processor.h"
#include "general/system.h"
#include "general/validators.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <windows.h>

namespace {

constexpr const char *usage = "Usage: sysreport [--json]\n"
                              "Prints one page about this machine: processor, system, clocks.\n"
                              "\n"
                              "  --json   the same as a JSON object\n"
                              "  -h, --help\n"
                              "\n"
                              "Takes about half a second. Exit status: 0, or 2 for a wrong command line.\n";

constexpr unsigned measuringTime = 200; // milliseconds

struct Item {
    std::string name;
    std::string value; // as the page shows it
    std::string json;  // as JSON writes it
};

struct Section {
    std::string name;
    std::vector<Item> items;
};

template<typename... Arguments>
std::string format(const char *pattern, Arguments... arguments)
{
    char text[128];
    snprintf(text, sizeof text, pattern, arguments...);
    return text;
}

/// A JSON string in plain ASCII, of a text as the system tells it: in its own code page.
std::string quoted(const std::string &text)
{
    auto size = static_cast<int>(text.size());
    std::vector<wchar_t> units(text.size());
    units.resize(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), size, units.data(), size)));
    std::string result = "\"";
    for (wchar_t unit : units) {
        if (unit < ' ' || unit > '~')
            result += format("\\u%04x", unsigned{unit});
        else if (unit == '"' || unit == '\\')
            result += {'\\', static_cast<char>(unit)};
        else
            result += static_cast<char>(unit);
    }
    return result + '"';
}

Item text(const char *name, const std::string &value)
{
    return {name, value.empty() ? "(none)" : value, quoted(value)};
}

Item number(const char *name, double value, const char *pattern, const char *unit = "")
{
    std::string figure = format(pattern, value);
    return {name, figure + unit, figure};
}

Item yesNo(const char *name, bool value)
{
    return {name, value ? "yes" : "no", value ? "true" : "false"};
}

std::string vendor()
{
    char text[13];
    Kucpuid_vendorid(text);
    return text;
}

std::string spelledBrand()
{
    char text[49];
    Kucpuid_get_extended_brand_string(text);
    return text + strspn(text, " ");
}

const char *countStatus(int status)
{
    switch (status) {
    case KU_SINGLE_CORE_HT_ENABLED:
        return "single core, Hyper-Threading enabled";
    case KU_SINGLE_CORE_HT_DISABLED:
        return "single core, Hyper-Threading disabled";
    case KU_SINGLE_CORE_NO_HT:
        return "single core, no Hyper-Threading";
    case KU_MULTI_CORE_NO_HT:
        return "multi-core, no Hyper-Threading";
    case KU_MULTI_CORE_HT_ENABLED:
        return "multi-core, Hyper-Threading enabled";
    case KU_MULTI_CORE_HT_DISABLED:
        return "multi-core, Hyper-Threading disabled";
    default:
        return "not counted: this process may not use every processor";
    }
}

Section processor()
{
    int family = 0, model = 0, stepping = 0;
    Kucpuid_model(&family, &model, &stepping);
    return {"processor",
            {text("vendor", vendor()), text("model", Kucpuid_model_name()), text("brand", spelledBrand()),
             text("brand index", Kucpuid_get_brand_string()),
             text("signature", format("family %d, model %d, stepping %d", family, model, stepping)),
             number("highest CPUID leaf", Kucpuid_supported(), "%.0f"), yesNo("MMX", KuMMX_supported() == 1),
             yesNo("SSE", KuXMMX_supported() == 1), yesNo("SSE2", KuSSE2_supported() == 1),
             yesNo("Hyper-Threading", KuHT_supported() == 1),
             number("frequency", static_cast<double>(Kucpuid_frequency(measuringTime)) / 1000, "%.1f", " MHz")}};
}

Section processors()
{
    unsigned logical = 0, cores = 0, packages = 0;
    int status = KuCPUCount(&logical, &cores, &packages);
    return {"processors",
            {number("logical", logical, "%.0f"), number("cores", cores, "%.0f"), number("packages", packages, "%.0f"),
             text("status", countStatus(status)),
             number("stated per package", KuLogicalProcPerPhysicalProc(), "%.0f", " logical"),
             number("running on APIC id", KuGetAPIC_ID(), "%.0f")}};
}

const char *windowsName()
{
    if (iswin95() != 0)
        return "95 family"; // first: iswinNT is not 0 there either
    if (iswinNT() != 0)
        return "NT 4.0";
    if (iswin2K() != 0)
        return "2000";
    return iswinXP() != 0 ? "XP" : "another of the NT family";
}

std::string windowsVersion()
{
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    GetVersionExA(&version);
    return format("%lu.%lu.%lu", version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber & 0xFFFF);
}

Section system()
{
    bool is95 = iswin95() != 0;
    return {"system",
            {text("Windows", windowsName()), text("Windows version", windowsVersion()),
             yesNo("Windows 95 family", is95), yesNo("Windows NT family", !is95),
             text("DNS domain", QVSgetdomainname()), number("sysconf 506", QVSsysconf(QVS_SC_PER_THREAD), "%.0f"),
             number("sysconf 508", QVSsysconf(QVS_SC_64), "%.0f")}};
}

/// The shortest step that a clock makes, in its own units, over many readings.
template<typename Read>
double smallestStep(Read read, unsigned steps)
{
    double smallest = 1e18;
    for (unsigned i = 0; i < steps; ++i) {
        auto before = read(), after = before;
        while ((after = read()) == before) {
        }
        smallest = std::min(smallest, static_cast<double>(after - before));
    }
    return smallest;
}

Section clocks()
{
    ChronoRec stopwatch;
    ChronoInit(&stopwatch);
    constexpr int readings = 20000;
    for (int i = 0; i < readings; ++i)
        ChronoNow();
    double perReading = ChronoTime(&stopwatch, 0) / readings;
    double counterStep = smallestStep(ChronoNow, 1000) * ChronoSecs(1);
    ChronoLocal now;
    ChronoLocalTime(&now);
    LARGE_INTEGER frequency = {};
    bool hasCounter = QueryPerformanceFrequency(&frequency) != 0;
    return {"clocks",
            {text("tick source", hasCounter ? "performance counter" : "millisecond count"),
             number("tick", ChronoSecs(1) * 1e9, "%.1f", " ns"),
             number("smallest step", counterStep * 1e9, "%.1f", " ns"),
             number("cost of one reading", perReading * 1e9, "%.0f", " ns"),
             number("millisecond count step", smallestStep(GetTickCount, 3), "%.0f", " ms"),
             text("local time", format("%04u-%02u-%02u %02u:%02u:%02u.%03u", now.year, now.month, now.day, now.hour,
                                       now.minute, now.second, now.microsecond / 1000))}};
}

void printPage(const std::vector<Section> &sections)
{
    for (const Section &section : sections) {
        printf("%s\n", section.name.c_str());
        for (const Item &item : section.items)
            printf("  %-24s %s\n", item.name.c_str(), item.value.c_str());
        printf("\n");
    }
    printf("each processor\n%s", KuGet3LevelSubIDStr());
}

void printJson(const std::vector<Section> &sections)
{
    for (size_t i = 0; i < sections.size(); ++i) {
        printf("%s%s: {", i == 0 ? "{\n  " : ",\n  ", quoted(sections[i].name).c_str());
        const std::vector<Item> &items = sections[i].items;
        for (size_t j = 0; j < items.size(); ++j)
            printf("%s\n    %s: %s", j == 0 ? "" : ",", quoted(items[j].name).c_str(), items[j].json.c_str());
        printf("\n  }");
    }
    printf("\n}\n");
}

} // namespace

int main(int argc, char **argv)
{
    std::string option = argc > 1 ? argv[1] : "";
    if (option == "-h" || option == "--help") {
        fputs(usage, stdout);
        return 0;
    }
    if (argc > 2 || (argc == 2 && option != "--json")) {
        fprintf(stderr, "sysreport: unknown argument %s; see sysreport --help\n", argv[argc - 1]);
        return 2;
    }
    const std::vector<Section> sections = {processor(), processors(), system(), clocks()};
    if (option == "--json")
        printJson(sections);
    else
        printPage(sections);
    return 0;
}
