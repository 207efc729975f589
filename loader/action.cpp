#include "tarquel/action.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/log.h"

namespace {

// Far above any list that means something, far below what memory holds.
constexpr int kMostPairs = 1 << 16;

// The ints or strings of `count` pairs. A count that no list has throws std::length_error.
size_t PairedSize(int cmdId, int count) {
    if (count < 0 || count > kMostPairs) {
        TARQUEL_LOGE("tarquel: action list is invalid, cmdId is %d, tagLen is %d\n", cmdId, count);
        throw std::length_error("number of an action's pairs");
    }
    return static_cast<size_t>(count) * 2;
}

}  // namespace

Action::Action(int cmdIdArg, std::string nameArg, int durationArg, int boostLimitLevelArg)
    : cmdId(cmdIdArg),
      duration(durationArg),
      boostLimitLevel(boostLimitLevelArg),
      name(std::move(nameArg)) {}

Action::~Action() = default;

QcomAction::QcomAction(int cmdIdArg, std::string nameArg, int durationArg, int boostLimitLevelArg,
                       int count, int* pairs)
    : Action(cmdIdArg, std::move(nameArg), durationArg, boostLimitLevelArg) {
    const size_t ints = PairedSize(cmdIdArg, count);
    if (pairs == nullptr && ints > 0) {
        TARQUEL_LOGE("tarquel: action list is NULL, cmdId is %d, tagLen is %d\n", cmdIdArg, count);
        return;
    }
    tagLen = count;
    perfList.assign(pairs, pairs + ints);
}

QcomAction::QcomAction(int cmdIdArg, std::string nameArg, int durationArg, int boostLimitLevelArg,
                       int count, std::vector<std::string> strings)
    : Action(cmdIdArg, std::move(nameArg), durationArg, boostLimitLevelArg) {
    tagLen = count;
    interList.resize(PairedSize(cmdIdArg, count));
    const size_t given = std::min(strings.size(), interList.size());
    std::move(strings.begin(), strings.begin() + static_cast<std::ptrdiff_t>(given),
              interList.begin());
}

QcomAction::~QcomAction() = default;
