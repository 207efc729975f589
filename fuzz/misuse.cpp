// Calls that the server should never make.
#include <climits>
#include <string>

#include "fuzz/desk.h"
#include "fuzz/finding.h"
#include "tarquel/plat.h"

namespace fuzz {
namespace {

using Kind = Misuse::Kind;

constexpr int kBeyondCounts = 1'025;  // the first count that no request may have
constexpr size_t kLongText = 100'000;
constexpr size_t kPieceOfLongText = 100;
constexpr int kCopyInts = 64;

constexpr int kTags[2] = {1, 10};
constexpr int kValues[2] = {1'000'000, 0};

int AtLeast(int low, int number) {
    return number < low ? low : number;
}

// A message of many pieces, none of which names a task.
std::string LongMessage() {
    std::string text(kLongText, 'a');
    for (size_t i = 0; i < kLongText; i += kPieceOfLongText) text[i] = '|';
    return text;
}

int Negative(int number) {
    return number < 0 ? number : -1 - number;
}

}  // namespace

Desk::Outcome Desk::Do(const Misuse& asked) {
    if (asked.kind <= Kind::kLastOfLimits) {
        LimitWrongly(asked);
    } else if (asked.kind <= Kind::kLastOfQueries) {
        QueryWrongly(asked);
    } else {
        CallWrongly(asked);
    }
    return {};
}

void Desk::LimitWrongly(const Misuse& asked) {
    const int number = asked.number;
    const int client = 1 + static_cast<int>(static_cast<unsigned>(number) % 4);
    const auto set = [this](int who, int count, const int* tags, const int* values) {
        return mAdapter->DoPerfSetConfig(who, count, tags, values);
    };
    switch (asked.kind) {
        case Kind::kNullTags:
            Require(set(client, 2, nullptr, kValues) == -1, "null tags taken");
            break;
        case Kind::kNullConfigs:
            Require(set(client, 2, kTags, nullptr) == -1, "null values taken");
            break;
        case Kind::kNegativeCount:
            Require(set(client, Negative(number), kTags, kValues) == -1, "a negative count taken");
            break;
        case Kind::kHugeCount:
            Require(set(client, AtLeast(kBeyondCounts, number), kTags, kValues) == -1,
                    "a huge count taken");
            break;
        default: {
            const bool isKnown = number >= 0 && number <= 4;
            Require(set(isKnown ? 5 : number, 2, kTags, kValues) == -1,
                    "an unknown client's request taken");
            Require(set(0, 2, kTags, kValues) == 0, "nobody is refused");
        }
    }
}

void Desk::QueryWrongly(const Misuse& asked) {
    const int number = asked.number;
    int room[2] = {number, number};
    switch (asked.kind) {
        case Kind::kNullQuery:
            Require(mAdapter->DoPerfGetConfig(2, nullptr, room) == 0, "a query failed");
            Require(mAdapter->DoPerfGetConfig(2, kTags, nullptr) == 0, "a query failed");
            break;
        case Kind::kHugeQuery:
            Require(mAdapter->DoPerfGetConfig(AtLeast(kBeyondCounts, number), kTags, room) == 0,
                    "a query failed");
            break;
        default: {
            const lab::ActionChain action = MakePlain();
            Require(mAdapter->GetPerfTagValue(*action, number, nullptr, room) == -1,
                    "ceilings without tags");
            Require(mAdapter->GetPerfTagValue(*action, number, room, nullptr) == -1,
                    "ceilings without values");
        }
    }
    Require(room[0] == number && room[1] == number, "a refused query was answered");
}

void Desk::CallWrongly(const Misuse& asked) {
    const int number = asked.number;
    const lab::ActionChain action = MakePlain();
    switch (asked.kind) {
        case Kind::kNullPayload:
            Require(mLibrary.DoInterFreqAction(*action, nullptr) == -1, "null payload taken");
            break;
        case Kind::kInitializeAgain: {
            using Initialize = int (*)(QcomPerfPlat*);
            const auto platform = Exported<QcomPerfPlat* (*)()>("GetPlat")();
            const auto again = Exported<Initialize>("_ZN12QcomPerfPlat10InitializeEv");
            Require(again(platform) == 0, "a second start failed");
            break;
        }
        case Kind::kNoLock: {
            using Member = int (*)(PerfAdapter*, int);
            const auto check = Exported<Member>("_ZN15QcomPerfAdapter19CheckPerfLockHandleEi");
            for (const int handle : {0, -1}) {
                Require(check(mAdapter, handle) == handle, "a lock that is none was ended");
            }
            break;
        }
        case Kind::kBoostClock:
            mAdapter->UpdateBoostCount(number, LONG_MIN);
            mAdapter->UpdateBoostCount(number, LONG_MAX);
            mAdapter->CanThermalBoost(number);
            break;
        case Kind::kLongMessage:
            action->taskBoost = 1;
            mAdapter->DoAddTaskBoostInfo(*action, LongMessage());
            mAdapter->DoAddTaskBoostInfo(*action, "targetPid=" + std::string(kLongText, '1'));
            break;
        default:
            SaveWrongly(*action, asked);
    }
}

void Desk::SaveWrongly(Action& action, const Misuse& asked) {
    using Member = void (*)(PerfAdapter*, const QcomAction&, const int*, int&, int*, int&);
    const auto save =
        Exported<Member>("_ZN15QcomPerfAdapter11SavePerfValERK10QcomActionPKiRiPiS5_");
    int list[kCopyInts] = {};
    int* const target = asked.number % 2 == 0 ? nullptr : list;
    const int wanted = asked.kind == Kind::kSaveNothing ? Negative(asked.number)
                                                        : AtLeast(kCopyInts + 1, asked.number);
    int durationMs = 7;
    int length = wanted;
    action.perfList.assign(3 * kCopyInts, 1);
    save(mAdapter, static_cast<const QcomAction&>(action), nullptr, durationMs, target, length);
    const bool isRefused = wanted < 0 || target == nullptr;
    Require(durationMs == 7 && length == (isRefused ? wanted : kCopyInts),
            "a refused copy changed something, or one too long was not cut");
}

}  // namespace fuzz
