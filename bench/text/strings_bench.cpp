#include "bench/support/row.h"

#include "general/strings.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

/// The table of any Pearson hash does: what is timed is the chain of look-ups.
const unsigned char *table()
{
    static unsigned char permutation[256];
    for (unsigned i = 0; i < 256; ++i)
        permutation[i] = static_cast<unsigned char>(i * 167 + 41);
    return permutation;
}

int loopHash(const char *string, const unsigned char *permutation)
{
    unsigned char hash = 0;
    for (; *string != '\0'; ++string)
        hash = permutation[hash ^ static_cast<unsigned char>(*string)];
    return hash;
}

/// The same by a call, with the hash in a whole register: a call of a DLL at its barest.
[[gnu::noinline]] int calledHash(const char *string, const unsigned char *permutation)
{
    unsigned hash = 0;
    for (; *string != '\0'; ++string)
        hash = permutation[hash ^ static_cast<unsigned char>(*string)];
    return static_cast<int>(hash);
}

void contendHash(size_t length)
{
    std::string row = "hash, " + std::to_string(length) + " bytes";
    std::string text(length, 'x');
    auto add = [&](const char *contender, auto hash, double aim) {
        bench::contend(
            row, contender,
            [=](benchmark::State &state) {
                const unsigned char *permutation = table();
                for (auto _ : state) {
                    benchmark::DoNotOptimize(text.data());
                    benchmark::DoNotOptimize(hash(text.c_str(), permutation));
                }
            },
            aim);
    };
    add("general", [](const char *string, const unsigned char *t) { return strhash(string, t); }, 0.9);
    add("inlined byte loop", [](const char *string, const unsigned char *t) { return loopHash(string, t); }, 0);
    int (*call)(const char *, const unsigned char *) = calledHash;
    benchmark::DoNotOptimize(call);
    if (length == 8)
        add("limit: bare calls", call, 0.9);
}

void contendTokens(const char *name, const std::string &line, const char *delims)
{
    std::string row = std::string("split ") + name;
    auto add = [&](const char *contender, auto next, double aim) {
        bench::contend(
            row, contender,
            [=](benchmark::State &state) {
                std::vector<char> buffer(line.size() + 1);
                for (auto _ : state) {
                    std::memcpy(buffer.data(), line.c_str(), buffer.size());
                    char *save = nullptr;
                    size_t sum = 0;
                    for (char *token = next(buffer.data(), delims, &save); token != nullptr;
                         token = next(nullptr, delims, &save))
                        sum += static_cast<unsigned char>(*token);
                    benchmark::DoNotOptimize(sum);
                }
            },
            aim);
    };
    add("general", [](char *s, const char *d, char **save) { return strtoknst(s, d, save); }, 0.9);
    add("strtok", [](char *s, const char *d, char **) { return std::strtok(s, d); }, 0);
}

/// What one writes without strcntrl.
void visibleByHand(char *dst, const char *src)
{
    for (; *src != '\0'; ++src) {
        if (std::isprint(static_cast<unsigned char>(*src)) != 0 || *src == '\t')
            *dst++ = *src;
        else
            dst += std::sprintf(dst, "<0x%X>", static_cast<signed char>(*src));
    }
    *dst = '\0';
}

void contendVisible(const char *name, const std::string &block)
{
    constexpr size_t size = 64 * 1024;
    std::string text;
    while (text.size() < size)
        text += block;
    std::string row = std::string("make 64 KiB visible, ") + name;
    auto add = [&](const char *contender, auto convert, double aim) {
        bench::contend(
            row, contender,
            [=](benchmark::State &state) {
                std::vector<char> visible(12 * text.size() + 1);
                for (auto _ : state) {
                    convert(visible.data(), text.c_str());
                    benchmark::DoNotOptimize(visible.data());
                }
                state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
            },
            aim);
    };
    add("general", [](char *dst, const char *src) { strcntrl(dst, src); }, 1.0);
    add("isprint and sprintf", [](char *dst, const char *src) { visibleByHand(dst, src); }, 0);
}

const bool registered = [] {
    for (size_t length : {8u, 64u, 4096u})
        contendHash(length);
    std::string fields;
    std::string prose;
    for (int i = 0; i < 100; ++i) {
        fields += "field" + std::to_string(i) + ",";
        prose += "Words, of prose; and (other) marks. ";
    }
    contendTokens("100 fields at commas", fields, ",");
    contendTokens("600 words at 10 delimiters", prose, " ,;.:!?()\t");
    contendTokens("3 short fields", "a=b;c", "=;");
    contendVisible("plain text", "A line of plain text, with a tab\there. ");
    contendVisible("lines with CR LF", "A line of plain text, with its end.\r\n");
    contendVisible("control characters", "\x01\x1B\x7F\x80");
    return true;
}();

} // namespace
