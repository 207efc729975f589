#include "lab/names/moments.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <regex>
#include <stdexcept>

#include "lab/names/text.h"

namespace lab {
namespace {

namespace chrono = std::chrono;
using namespace std::chrono_literals;

constexpr int kSecondsWidth = 10;

// No date and time of day has more letters.
constexpr size_t kLongestWritten = 64;

// Any two years that differ in having 29 February.
constexpr int kCommonYear = 2023;
constexpr int kLeapYear = 2024;

// More is a slip, and beyond what a time can hold.
constexpr double kLatestSeconds = 1e9;

chrono::sys_days DateOf(chrono::microseconds since1970) {
    return chrono::sys_days(chrono::floor<chrono::days>(since1970));
}

}  // namespace

// A date and time of day in letters.
struct Moments::Written {
    std::optional<int> year;
    int month = 0;  // 0: no date
    int day = 0;
    chrono::microseconds ofDay{};
    chrono::microseconds lasts = chrono::seconds(1);  // the unit of the last digit

    // Nothing for what has another form.
    static std::optional<Written> Parse(const std::string& text) {
        static const std::regex form(
            "(?:(?:(\\d{4})-)?(\\d\\d)-(\\d\\d)[ T])?"           // date
            "(\\d{1,2}):(\\d\\d)(?::(\\d\\d)(?:\\.(\\d+))?)?");  // time of day
        std::smatch parts;
        if (text.size() > kLongestWritten || !std::regex_match(text, parts, form)) {
            return std::nullopt;
        }
        const auto number = [&parts](size_t part) {
            return parts[part].matched ? std::stoi(parts[part].str()) : 0;
        };
        Written written;
        if (parts[1].matched) written.year = number(1);
        written.month = number(2);
        written.day = number(3);
        const bool isDay = number(4) < 24 && number(5) < 60 && number(6) < 60;
        if (!isDay || (parts[2].matched && written.month == 0)) return std::nullopt;
        written.ofDay = chrono::hours(number(4)) + chrono::minutes(number(5));
        written.ofDay += chrono::seconds(number(6));
        if (!parts[6].matched) written.lasts = chrono::minutes(1);
        chrono::microseconds unit = chrono::seconds(1);
        for (const char digit : parts[7].str()) {
            unit /= 10;
            written.ofDay += unit * (digit - '0');
            written.lasts = std::max(unit, chrono::microseconds(1));
        }
        return written;
    }
};

Moments::Moments(const std::optional<WallClock>& clock, std::optional<chrono::nanoseconds> end)
    : mIsCapture(true), mIsOnClock(clock.has_value()), mEnd(end) {
    if (!clock) return;
    mHasYear = clock->year >= 0;
    const bool isLeapYear = clock->isLeapYear || (clock->month == 2 && clock->day == 29);
    const chrono::year ofYear(mHasYear ? clock->year : isLeapYear ? kLeapYear : kCommonYear);
    const auto date = ofYear / clock->month / clock->day;
    mOrigin = chrono::sys_days(date).time_since_epoch() + clock->ofDay;
    mIsDated =
        !end || DateOf(mOrigin) != DateOf(mOrigin + chrono::floor<chrono::microseconds>(*end));
}

std::string Moments::ClockText(chrono::nanoseconds at, bool isDated, bool hasYear) const {
    const chrono::microseconds now = mOrigin + chrono::floor<chrono::microseconds>(at);
    const chrono::sys_days date = DateOf(now);
    const chrono::hh_mm_ss time(chrono::floor<chrono::milliseconds>(now) - date.time_since_epoch());
    std::string text;
    if (isDated) {
        const chrono::year_month_day day(date);
        if (hasYear) text += fmt::format("{:04}-", static_cast<int>(day.year()));
        text += fmt::format("{:02}-{:02} ", static_cast<unsigned>(day.month()),
                            static_cast<unsigned>(day.day()));
    }
    return text + fmt::format("{:02}:{:02}:{:02}.{:03}", time.hours().count(),
                              time.minutes().count(), time.seconds().count(),
                              time.subseconds().count());
}

std::string Moments::Text(chrono::nanoseconds at) const {
    if (mIsOnClock) return ClockText(at, mIsDated, false);
    return fmt::format("{:.3f}", chrono::duration<double>(at).count());
}

int Moments::Width() const {
    return mIsOnClock ? static_cast<int>(Text({}).size()) : kSecondsWidth;
}

std::string Moments::Stamp(chrono::nanoseconds at) const {
    return mIsOnClock ? ClockText(at, true, mHasYear) : "";
}

std::string Moments::RangeText() const {
    const char* const what = mIsCapture ? "the capture" : "the scenario";
    if (!mIsOnClock) return fmt::format("{} ends at {} s", what, Text(mEnd.value_or(0s)));
    if (!mEnd) return fmt::format("{} begins at {}", what, Stamp({}));
    return fmt::format("{} is from {} to {}", what, Stamp({}), Stamp(*mEnd));
}

std::string Moments::Forms() const {
    const std::string since = "seconds (5.200, 5s) or milliseconds (5200ms)";
    if (!mIsOnClock) {
        return since + (mIsCapture ? " since the first line" : " since the start");
    }
    return fmt::format("the time that the capture prints ({}, or {}), or {} since its first line",
                       Text({}), mIsDated ? "19:42:30" : Stamp({}), since);
}

void Moments::Refuse(const std::string& option, const std::string& text,
                     const std::string& why) const {
    throw std::runtime_error(fmt::format("{} {}: {}", option, Shortened(text), why));
}

bool Moments::IsWithin(chrono::nanoseconds at) const {
    return at >= 0s && (!mEnd || at <= *mEnd);
}

// When there is this within the capture. What is written with fewer digits than lines have means
// all of its second, and so the first line within it.
std::vector<chrono::nanoseconds> Moments::TimesOf(const Written& written) const {
    std::vector<chrono::nanoseconds> times;
    const auto add = [&](chrono::sys_days date) {
        chrono::nanoseconds at = date.time_since_epoch() + written.ofDay - mOrigin;
        if (at < 0s && at + written.lasts > 0s) at = 0s;
        if (IsWithin(at)) times.push_back(at);
    };
    const chrono::sys_days first = DateOf(mOrigin);
    const chrono::sys_days last =
        DateOf(mOrigin + chrono::floor<chrono::microseconds>(mEnd.value_or(0s)));
    if (written.month == 0) {
        for (chrono::sys_days date = first; date <= last; date += chrono::days(1)) add(date);
        return times;
    }
    const chrono::year firstYear = chrono::year_month_day(first).year();
    const chrono::year lastYear = chrono::year_month_day(last).year();
    for (chrono::year one = firstYear; one <= lastYear; ++one) {
        const auto date = one / written.month / written.day;
        const bool isMeant = !written.year || *written.year == static_cast<int>(one);
        if (isMeant && date.ok()) add(date);
    }
    return times;
}

chrono::nanoseconds Moments::Read(const std::string& option, const std::string& text) const {
    if (const auto written = Written::Parse(text)) {
        if (!mIsOnClock) {
            Refuse(option, text,
                   std::string(mIsCapture ? "the capture prints no date and time of day"
                                          : "a scenario has no clock") +
                       "; write " + Forms());
        }
        if (written->year && !mHasYear) {
            Refuse(option, text, "the capture prints no year; leave it out");
        }
        const std::vector<chrono::nanoseconds> times = TimesOf(*written);
        if (times.empty()) Refuse(option, text, "not in the capture; " + RangeText());
        if (times.size() > 1) {
            Refuse(option, text,
                   fmt::format("this is {} times in the capture; write the date, as {} or {}",
                               times.size(), Stamp(times[0]), Stamp(times[1])));
        }
        return times.front();
    }
    const std::string digits = text.substr(0, text.find_first_not_of("0123456789."));
    const std::string unit = text.substr(digits.size());
    const auto points = std::count(digits.begin(), digits.end(), '.');
    if (digits.empty() || digits == "." || points > 1 ||
        !(unit.empty() || unit == "s" || unit == "ms")) {
        Refuse(option, text, "this is no time; write " + Forms());
    }
    const double number = std::strtod(digits.c_str(), nullptr);
    if (unit.empty() && points == 0 && number != 0) {
        Refuse(option, text, fmt::format("write {0}ms or {0}s: both can be meant", text));
    }
    const double inSeconds = unit == "ms" ? number / 1000 : number;
    if (!(inSeconds <= kLatestSeconds)) {
        Refuse(option, text, mEnd ? "too late; " + RangeText() : "this is too late");
    }
    const chrono::nanoseconds at = chrono::microseconds(std::llround(inSeconds * 1e6));
    if (!IsWithin(at)) Refuse(option, text, "not in it: " + RangeText());
    return at;
}

}  // namespace lab
