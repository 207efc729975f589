#include "tarquel/action.h"

#include <algorithm>
#include <utility>

namespace {

// A negative count becomes a size that no vector has: its constructor throws std::length_error.
size_t PairedSize(int count) {
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
    tagLen = count;
    perfList.resize(PairedSize(count));
    if (pairs != nullptr) std::copy_n(pairs, perfList.size(), perfList.begin());
}

QcomAction::QcomAction(int cmdIdArg, std::string nameArg, int durationArg, int boostLimitLevelArg,
                       int count, std::vector<std::string> strings)
    : Action(cmdIdArg, std::move(nameArg), durationArg, boostLimitLevelArg) {
    tagLen = count;
    interList.resize(PairedSize(count));
    const size_t given = std::min(strings.size(), interList.size());
    std::move(strings.begin(), strings.begin() + static_cast<std::ptrdiff_t>(given),
              interList.begin());
}

QcomAction::~QcomAction() = default;
