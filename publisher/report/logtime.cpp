#include "publisher/report/logtime.h"

#include <charconv>
#include <chrono>

namespace Publisher::LogTime {

namespace {

constexpr std::string_view months("JanFebMarAprMayJunJulAugSepOctNovDec");
constexpr std::int64_t secondsOfAnHour = 3'600;

std::optional<unsigned> monthOf(std::string_view name)
{
    const std::size_t place = months.find(name);
    if (name.size() != 3 || place == std::string_view::npos || place % 3 != 0)
        return std::nullopt;
    return static_cast<unsigned>(place / 3 + 1);
}

std::optional<std::int64_t>
dayOf(std::string_view day, std::string_view month, std::string_view year)
{
    const auto dayNumber = number(day);
    const auto monthNumber = monthOf(month);
    const auto yearNumber = number(year);
    if (!dayNumber || !monthNumber || !yearNumber)
        return std::nullopt;
    const std::chrono::year_month_day date{ std::chrono::year(static_cast<int>(*yearNumber)),
                                            std::chrono::month(*monthNumber),
                                            std::chrono::day(static_cast<unsigned>(*dayNumber)) };
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch().count();
}

/// "10:46:00".
std::optional<std::int64_t> secondOfDay(std::string_view text)
{
    if (text.size() != 8 || text[2] != ':' || text[5] != ':')
        return std::nullopt;
    const auto hours = number(text.substr(0, 2));
    const auto minutes = number(text.substr(3, 2));
    const auto seconds = number(text.substr(6, 2));
    // A leap second is the 60th.
    if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 60)
        return std::nullopt;
    return *hours * secondsOfAnHour + *minutes * secondsOfAMinute + *seconds;
}

/// "+0130".
std::optional<std::int64_t> offsetOf(std::string_view text)
{
    if (text.size() != 5 || (text[0] != '+' && text[0] != '-'))
        return std::nullopt;
    const auto hours = number(text.substr(1, 2));
    const auto minutes = number(text.substr(3, 2));
    if (!hours || !minutes)
        return std::nullopt;
    const std::int64_t seconds = *hours * secondsOfAnHour + *minutes * secondsOfAMinute;
    return text[0] == '-' ? -seconds : seconds;
}

std::optional<std::int64_t>
combined(std::optional<std::int64_t> day, std::optional<std::int64_t> second)
{
    if (!day || !second)
        return std::nullopt;
    return *day * secondsOfADay + *second;
}

} // namespace

std::optional<std::int64_t> number(std::string_view digits)
{
    std::int64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc() || stop != end || digits.front() == '-')
        return std::nullopt;
    return value;
}

std::optional<std::int64_t> ofTextLog(std::string_view text)
{
    if (text.size() != 26 || text[2] != '/' || text[6] != '/' || text[11] != ':' || text[20] != ' ')
        return std::nullopt;
    const auto local = combined(
        dayOf(text.substr(0, 2), text.substr(3, 3), text.substr(7, 4)),
        secondOfDay(text.substr(12, 8)));
    const auto offset = offsetOf(text.substr(21));
    if (!local || !offset)
        return std::nullopt;
    return *local - *offset;
}

std::optional<std::int64_t> ofHttp(std::string_view text)
{
    if (text.size() != 29 || text.substr(3, 2) != ", " || text[7] != ' ' || text[11] != ' '
        || text[16] != ' ' || text.substr(25) != " GMT")
        return std::nullopt;
    return combined(
        dayOf(text.substr(5, 2), text.substr(8, 3), text.substr(12, 4)),
        secondOfDay(text.substr(17, 8)));
}

} // namespace Publisher::LogTime
