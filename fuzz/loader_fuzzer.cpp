// The loader on arbitrary records: it refuses or translates them, and leaves them as they were. Now
// and then an adapter is built on whatever clusters they described, and runs what came out.
#include <stdexcept>

#include "fuzz/finding.h"
#include "fuzz/records.h"
#include "lab/phone/phone.h"
#include "lab/server/library.h"

namespace {

constexpr size_t kMostPairs = 35;

// Never destroyed: the fuzzer looks into the plug-in's memory when the program has ended.
struct World {
    lab::Phone phone{lab::LoadDeviceProfile("sm8450")};
    lab::Library library{""};
};
World& TheWorld() {
    static World* const world = new World;
    return *world;
}

size_t Length(const RawXmlData& first) {
    size_t length = 0;
    for (const RawXmlData* record = &first; record != nullptr; record = record->next) ++length;
    return length;
}

void CheckChain(const RawXmlData& head, const Action& first) {
    fuzz::Require(first.headValue0 == head.headValue0 && first.headValue1 == head.headValue1 &&
                      first.headValue2 == head.headValue2,
                  "an action does not carry its command's header values");
    size_t actions = 0;
    for (const Action* action = &first; action != nullptr; action = action->next) {
        ++actions;
        const auto pairs = static_cast<size_t>(action->tagLen);
        fuzz::Require(pairs <= kMostPairs, "an action has more pairs than the HAL is given");
        fuzz::Require(action->perfList.size() == 2 * pairs, "tagLen does not count the pairs");
        fuzz::Require(action->boostLevels.size() % 4 == 0, "boost levels do not come in fours");
    }
    fuzz::Require(actions == Length(*head.next), "an element has no action, or an action none");
}

void RunAll(World& world, const std::map<int, lab::ActionChain>& chains) {
    PerfAdapter& adapter = world.library.Restart();
    for (const int event : {0, 5, -1}) {
        for (const auto& [id, chain] : chains) {
            const int result = adapter.DoAction(*chain, 1, &event);
            fuzz::Require(result == 0 || result == -1, "DoAction returned neither 0 nor -1");
        }
    }
    for (const lab::PerfHal::Lock& lock : world.phone.Hal().Held()) {
        world.phone.Hal().Release(lock.handle);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    World& world = TheWorld();
    fuzz::BytesSource source(data, size);
    const bool runs = source.Chance(4);
    fuzz::Records records(source);
    const std::string fixed = records.Fixed();

    std::map<int, lab::ActionChain> chains;
    try {
        chains = world.library.ParseScenes(records.Heads());
    } catch (const std::logic_error&) {
        // The number behind "freq_level_info" is the server's to get right.
    }
    for (const auto& [id, chain] : chains) {
        const auto head = records.Heads().find(id);
        fuzz::Require(head != records.Heads().end() && head->second != nullptr,
                      "the loader made an action for a command that it was not given");
        CheckChain(*head->second, *chain);
    }
    for (const auto& record : records.All()) {
        const lab::ActionChain action = world.library.ParseInteractive(*record);
        if (action == nullptr) continue;
        fuzz::Require(action->next == nullptr, "an interactive action has a successor");
        const auto& made = static_cast<const QcomAction&>(*action);
        fuzz::Require(made.interList.size() == 2 * static_cast<size_t>(made.tagLen),
                      "tagLen does not count the names of an interactive action");
    }
    fuzz::Require(records.Fixed() == fixed, "the loader changed a record that is the server's");
    if (runs) RunAll(world, chains);
    world.phone.Events().Clear();
    return 0;
}
