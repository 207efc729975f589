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

// Nobody is silent for so long on a phone that runs.
constexpr Time kLongSilence = std::chrono::minutes(10);
constexpr size_t kMostRemarks = 50;

std::string LagText(Time time) {
    const double seconds = std::chrono::duration<double>(time).count();
    if (seconds < 120) return fmt::format("{:.3f} s", seconds);
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    return fmt::format("{} h {:02} min {:02} s", whole / 3600, whole / 60 % 60, whole % 60);
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

Time LogClock::Follow(Time printed, bool isTimed, bool isAccepted) {
    if (!isTimed) return std::max(printed + mShift, mNow);
    const Time at = printed + mShift;
    if (mLag && at >= mNow - LogReader::kOrderWindow) mLag.reset();  // the line before lagged alone
    if (at < mNow - LogReader::kOrderWindow) {
        if (!isAccepted && !mLag) return mNow;  // it may be there a second time
        const int line = static_cast<int>(mCapture.lineCount);
        if (!mLag) {
            mLag = Lag{mCapture.problems.size(), line, mNow - at};
            mCapture.Tell(fmt::format("{} earlier than the lines above it; taken where it stands",
                                      LagText(mNow - at)));
            return mNow;
        }
        mShift += mLag->back;
        const size_t told = std::min(mLag->problem, mCapture.problems.size() - 1);
        mCapture.problems[told].message = fmt::format(
            "the clock goes back by {} here: it was set, or captures are joined "
            "out of order; the lines are taken as they stand",
            LagText(mLag->back));
        Remark({mLag->line, mLag->line,
                fmt::format("the clock was set back by {}: times before and behind it are of "
                            "different clocks, and the first is shown",
                            LagText(mLag->back))});
        mLag.reset();
        mNow = std::max(mNow, printed + mShift);
        return printed + mShift;
    }
    if (mHasTime && at - mNow > kLongSilence) {
        const int line = static_cast<int>(mCapture.lineCount);
        Remark({line, line,
                fmt::format("no program logs for {} before this line: the phone slept, lines "
                            "are missing, or its clock was set",
                            LagText(at - mNow))});
    }
    mHasTime = true;
    mNow = std::max(mNow, at);
    return at;
}

void LogClock::Remark(LogProblem remark) {
    if (mCapture.clockRemarks.size() < kMostRemarks) {
        mCapture.clockRemarks.push_back(std::move(remark));
    }
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
