#include "lab/logcat/log_calendar.h"

#include <fmt/format.h>

namespace lab {
namespace {

constexpr int64_t kUsPerDay = INT64_C(24) * 3600 * 1'000'000;

// Of a leap year: 29 February has its day.
int64_t DaysBefore(int month) {
    static constexpr int kDays[] = {0, 0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366};
    return kDays[month];
}

}  // namespace

Time LogCalendar::At(const LogStamp& stamp) {
    const bool isDated = stamp.month != 0;
    if (isDated && mLast.month == 12 && stamp.month == 1) mDays += DaysBefore(13);
    if (isDated && mLast.month == 1 && stamp.month == 12) mDays -= DaysBefore(13);
    const bool mayLeap = stamp.year < 0 || stamp.year % 4 != 0;
    if (isDated && mayLeap && mLast.month == 2 && mLast.day == 28 && stamp.month == 3) --mDays;
    const int64_t days = isDated ? mDays + DaysBefore(stamp.month) + stamp.day : 0;
    // The first one is 0. Times of day and seconds alone have nothing in common: the second
    // kind goes on where the first was.
    if (!mHasLast || isDated != (mLast.month != 0)) {
        mShift = mNow - (days * kUsPerDay + stamp.us);
    }
    mHasLast = true;
    mLast = stamp;
    mNow = mShift + days * kUsPerDay + stamp.us;
    return std::chrono::microseconds(mNow);
}

std::string StampText(const LogStamp& stamp) {
    const int64_t ms = (stamp.us + stamp.zoneUs) / 1000;
    if (stamp.month == 0) return fmt::format("{}.{:03} s", ms / 1000, ms % 1000);
    const int64_t day = ((ms % 86'400'000) + 86'400'000) % 86'400'000;
    return fmt::format("{:02}-{:02} {:02}:{:02}:{:02}.{:03}", stamp.month, stamp.day,
                       day / 3'600'000, day / 60'000 % 60, day / 1000 % 60, day % 1000);
}

std::optional<Time> OnClock(const LogStamp& stamp) {
    const std::chrono::microseconds us(stamp.us);
    if (stamp.month == 0) return us;
    if (stamp.year < 0) return std::nullopt;
    const std::chrono::year_month_day day(std::chrono::year(stamp.year),
                                          std::chrono::month(static_cast<unsigned>(stamp.month)),
                                          std::chrono::day(static_cast<unsigned>(stamp.day)));
    return std::chrono::sys_days(day).time_since_epoch() + us;
}

}  // namespace lab
