#include "log_time.h"

#include "general/validators.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *months = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr std::time_t day = 24 * 60 * 60;

std::tm brokenDown(std::time_t time)
{
    return *std::localtime(&time);
}

/// @return nothing for a date or time that does not exist
std::optional<std::time_t> whole(std::tm parts)
{
    std::tm normal = parts;
    normal.tm_isdst = -1;
    std::time_t time = std::mktime(&normal);
    if (time == -1 || normal.tm_mday != parts.tm_mday || normal.tm_mon != parts.tm_mon ||
        normal.tm_min != parts.tm_min || normal.tm_sec != parts.tm_sec)
        return std::nullopt;
    return time;
}

/// Reads "HH:MM" or "HH:MM:SS", all of the text.
bool readTime(const char *text, std::tm &parts)
{
    int length = 0;
    parts.tm_sec = 0;
    if (std::sscanf(text, "%2d:%2d%n", &parts.tm_hour, &parts.tm_min, &length) < 2 || parts.tm_hour > 23)
        return false;
    int seconds = 0;
    if (std::sscanf(text + length, ":%2d%n", &parts.tm_sec, &seconds) == 1)
        length += seconds;
    return text[length] == '\0';
}

std::optional<std::time_t> parseAgo(const std::string &text, std::time_t now)
{
    const std::string number = text.substr(0, text.size() - 1);
    if (!isnatural(number.c_str()) || number.size() > 6)
        return std::nullopt;
    const std::time_t count = std::atol(number.c_str());
    switch (text.back()) {
    case 's':
        return now - count;
    case 'm':
        return now - count * 60;
    case 'h':
        return now - count * 60 * 60;
    case 'd':
        return now - count * day;
    default:
        return std::nullopt;
    }
}

} // namespace

std::optional<std::time_t> timeOfLine(const std::string &line, std::time_t now)
{
    std::tm parts = brokenDown(now);
    char month[4];
    if (std::sscanf(line.c_str(), "%3s %2d %2d:%2d:%2d ", month, &parts.tm_mday, &parts.tm_hour, &parts.tm_min,
                    &parts.tm_sec) != 5)
        return std::nullopt;
    const char *found = std::strstr(months, month);
    if (found == nullptr || (found - months) % 3 != 0)
        return std::nullopt;
    parts.tm_mon = static_cast<int>(found - months) / 3;
    std::optional<std::time_t> time = whole(parts);
    if (!time || *time > now + day) {
        --parts.tm_year;
        time = whole(parts);
    }
    return time;
}

std::optional<std::time_t> parseSince(const std::string &text, std::time_t now)
{
    if (text.size() < 2)
        return std::nullopt;
    if (std::optional<std::time_t> ago = parseAgo(text, now))
        return ago;
    std::tm parts = brokenDown(now);
    if (readTime(text.c_str(), parts))
        return whole(parts);
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    int length = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &length) != 3)
        return std::nullopt;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const char *rest = text.c_str() + length;
    if (*rest != '\0' && !((*rest == ' ' || *rest == 'T') && readTime(rest + 1, parts)))
        return std::nullopt;
    return whole(parts);
}
