#include "lab/logcat/log_header.h"

#include <algorithm>
#include <array>

#include "lab/names/text.h"

namespace lab {
namespace {

constexpr int64_t kUsPerSecond = 1'000'000;
constexpr int64_t kUsPerMinute = 60 * kUsPerSecond;

// Android's number of a priority; 0 for a letter that stands for none.
int PriorityOf(char letter) {
    constexpr std::string_view kLetters = "??VDIWEF";
    if (letter == 'S') return LogHeader().priority;
    const size_t number = kLetters.find(letter == 'A' ? 'F' : letter);
    return number < kLetters.size() ? static_cast<int>(number) : 0;
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

// Takes a line apart from its front. What does not fit leaves it where it was.
class Cursor {
  public:
    explicit Cursor(std::string_view text) : mRest(text) {}

    std::string_view Rest() const { return mRest; }

    bool Take(std::string_view wanted) {
        if (mRest.substr(0, wanted.size()) != wanted) return false;
        mRest.remove_prefix(wanted.size());
        return true;
    }

    size_t Blanks() {
        size_t count = 0;
        while (Take(" ")) ++count;
        return count;
    }

    std::optional<int64_t> Digits(size_t least, size_t most) {
        size_t count = 0;
        int64_t value = 0;
        while (count < mRest.size() && IsDigit(mRest[count])) {
            if (count == most) return std::nullopt;
            value = value * 10 + (mRest[count] - '0');
            ++count;
        }
        if (count < least) return std::nullopt;
        mRest.remove_prefix(count);
        return value;
    }

    // Up to the next blank.
    std::string_view Word() {
        const size_t end = std::min(mRest.find(' '), mRest.size());
        const std::string_view word = mRest.substr(0, end);
        mRest.remove_prefix(end);
        return word;
    }

  private:
    std::string_view mRest;
};

// ".789", ".789123" or ".789123456", in microseconds.
std::optional<int64_t> TakeFraction(Cursor& cursor) {
    if (!cursor.Take(".")) return std::nullopt;
    const size_t before = cursor.Rest().size();
    const std::optional<int64_t> value = cursor.Digits(3, 9);
    if (!value) return std::nullopt;
    int64_t us = *value;
    for (size_t digits = before - cursor.Rest().size(); digits < 6; ++digits) us *= 10;
    for (size_t digits = before - cursor.Rest().size(); digits > 6; --digits) us /= 10;
    return us;
}

// " +0200" behind a time: what to take away for UTC.
int64_t TakeZone(Cursor& cursor) {
    Cursor trial = cursor;
    const bool isEast = trial.Take(" +");
    if (!isEast && !trial.Take(" -")) return 0;
    const std::optional<int64_t> zone = trial.Digits(4, 4);
    if (!zone) return 0;
    cursor = trial;
    const int64_t us = (*zone / 100 * 60 + *zone % 100) * kUsPerMinute;
    return isEast ? us : -us;
}

std::optional<LogStamp> TakeDate(Cursor& cursor) {
    Cursor trial = cursor;
    LogStamp stamp;
    if (const auto year = trial.Digits(4, 4)) {
        stamp.year = static_cast<int>(*year);
        if (!trial.Take("-")) return std::nullopt;
    }
    const auto month = trial.Digits(2, 2);
    if (!month || *month < 1 || *month > 12 || !trial.Take("-")) return std::nullopt;
    const auto day = trial.Digits(2, 2);
    if (!day || *day < 1 || *day > 31 || trial.Blanks() == 0) return std::nullopt;
    const auto hour = trial.Digits(2, 2);
    if (!hour || *hour > 23 || !trial.Take(":")) return std::nullopt;
    const auto minute = trial.Digits(2, 2);
    if (!minute || *minute > 59 || !trial.Take(":")) return std::nullopt;
    const auto second = trial.Digits(2, 2);
    if (!second || *second > 60) return std::nullopt;
    const auto fraction = TakeFraction(trial);
    if (!fraction) return std::nullopt;
    stamp.month = static_cast<int>(*month);
    stamp.day = static_cast<int>(*day);
    stamp.us = (*hour * 60 + *minute) * kUsPerMinute + *second * kUsPerSecond + *fraction;
    stamp.zoneUs = TakeZone(trial);
    stamp.us -= stamp.zoneUs;
    cursor = trial;
    return stamp;
}

// A date and time of day, or seconds alone.
std::optional<LogStamp> TakeStamp(Cursor& cursor) {
    if (const auto stamp = TakeDate(cursor)) return stamp;
    Cursor trial = cursor;
    trial.Blanks();
    const auto seconds = trial.Digits(1, 11);
    if (!seconds) return std::nullopt;
    const auto fraction = TakeFraction(trial);
    if (!fraction) return std::nullopt;
    cursor = trial;
    LogStamp stamp;
    stamp.us = *seconds * kUsPerSecond + *fraction;
    return stamp;
}

int ToId(std::string_view word) {
    Cursor cursor(word);
    const auto number = cursor.Digits(1, 9);
    return number && cursor.Rest().empty() ? static_cast<int>(*number) : -1;
}

// "tag     : text"; a message may be empty, and then its blank may be gone.
bool TakeTagAndText(std::string_view rest, LogHeader& header) {
    size_t colon = rest.find(": ");
    if (colon == rest.npos && !rest.empty() && rest.back() == ':') colon = rest.size() - 1;
    if (colon == rest.npos) return false;
    header.tag = Trimmed(rest.substr(0, colon));
    header.text = rest.substr(std::min(colon + 2, rest.size()));
    return true;
}

// What follows the time in threadtime: [uid] pid tid priority tag: text.
bool TakeThreadtime(Cursor cursor, LogHeader& header) {
    std::array<std::string_view, 4> words;
    size_t count = 0;
    while (count < words.size() && cursor.Blanks() > 0) {
        const std::string_view word = cursor.Word();
        words[count++] = word;
        if (word.size() == 1 && PriorityOf(word[0]) > 0) break;
    }
    if (count < 3) return false;
    const std::string_view priority = words[count - 1];
    header.pid = ToId(words[count - 3]);
    header.tid = ToId(words[count - 2]);
    header.priority = priority.size() == 1 ? PriorityOf(priority[0]) : 0;
    if (header.priority == 0) return false;
    if (header.pid < 0 || header.tid < 0 || !cursor.Take(" ")) return false;
    header.format = LogFormat::kThreadtime;
    return TakeTagAndText(cursor.Rest(), header);
}

// "I/tag( 1234): text"; with `mayLackPid` "I/tag: text" too.
bool TakeBrief(std::string_view rest, bool mayLackPid, LogHeader& header) {
    if (rest.size() < 3 || PriorityOf(rest[0]) == 0 || rest[1] != '/') return false;
    header.priority = PriorityOf(rest[0]);
    rest.remove_prefix(2);
    for (size_t at = rest.find('('); at != rest.npos; at = rest.find('(', at + 1)) {
        Cursor cursor(rest.substr(at + 1));
        cursor.Blanks();
        const auto pid = cursor.Digits(1, 9);
        if (!pid || !cursor.Take("):")) continue;
        header.format = LogFormat::kBrief;
        header.pid = static_cast<int>(*pid);
        header.tag = Trimmed(rest.substr(0, at));
        cursor.Take(" ");
        header.text = cursor.Rest();
        return true;
    }
    header.format = LogFormat::kTag;
    return mayLackPid && TakeTagAndText(rest, header);
}

// "[ time [uid:] pid: tid P/tag ]".
std::optional<LogHeader> ParseLong(std::string_view line) {
    Cursor cursor(line);
    LogHeader header;
    if (!cursor.Take("[ ")) return std::nullopt;
    header.stamp = TakeStamp(cursor);
    if (!header.stamp || line.substr(line.size() - 2) != " ]") return std::nullopt;
    const size_t slash = cursor.Rest().find('/');
    if (slash == std::string_view::npos || slash < 2) return std::nullopt;
    header.format = LogFormat::kLong;
    header.priority = PriorityOf(cursor.Rest()[slash - 1]);
    std::string_view ids = Trimmed(cursor.Rest().substr(0, slash - 1));
    const size_t last = ids.rfind(':');
    if (header.priority == 0 || last == ids.npos) return std::nullopt;
    header.tid = ToId(Trimmed(ids.substr(last + 1)));
    ids = ids.substr(0, last);
    const size_t uid = ids.rfind(':');
    header.pid = ToId(Trimmed(uid == ids.npos ? ids : ids.substr(uid + 1)));
    if (header.pid < 0 || header.tid < 0) return std::nullopt;
    std::string_view tag = cursor.Rest().substr(slash + 1);
    tag.remove_suffix(2);
    header.tag = Trimmed(tag);
    return header;
}

}  // namespace

const char* FormatName(LogFormat format) {
    constexpr const char* kNames[] = {"threadtime", "time", "brief", "tag", "raw", "long"};
    return kNames[static_cast<size_t>(format)];
}

std::optional<LogHeader> ParseLogHeader(std::string_view line) {
    if (line.size() < 3) return std::nullopt;
    if (line[0] == '[') return ParseLong(line);
    LogHeader header;
    if (TakeBrief(line, true, header)) return header;
    Cursor cursor(line);
    header.stamp = TakeStamp(cursor);
    if (!header.stamp) return std::nullopt;
    if (TakeThreadtime(cursor, header)) return header;
    header.pid = header.tid = 0;
    if (!cursor.Take(" ") || !TakeBrief(cursor.Rest(), false, header)) return std::nullopt;
    header.format = LogFormat::kTime;
    return header;
}

size_t FindLogHeader(std::string_view text, size_t from) {
    // The seconds are the rarest part of a time: "12:34:56" stands 12 letters behind its head's
    // beginning in "06-14 12:34:56", 17 behind it with a year.
    for (size_t at = from; at + 14 <= text.size(); ++at) {
        // On to the next letter with a dash where a date has one.
        const size_t dash = text.find('-', at + 2);
        if (dash == text.npos) break;
        if (dash > at + 4) at = dash - 4;
        if (at + 14 > text.size()) break;
        const bool hasDashes = text[at + 2] == '-' || text[at + 4] == '-';
        if (!IsDigit(text[at]) || !IsDigit(text[at + 1]) || !hasDashes) continue;
        const std::optional<LogHeader> header = ParseLogHeader(text.substr(at));
        if (header && header->stamp && header->stamp->month != 0) return at;
    }
    return text.npos;
}

}  // namespace lab
