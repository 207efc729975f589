#include "lab/logcat/command_lists.h"

#include <algorithm>

#include "base/ids.h"
#include "lab/names/tag_names.h"

namespace lab {
namespace {

// What one call of the perf HAL takes.
constexpr size_t kMostInts = 64;

}  // namespace

CommandLists::CommandLists(Phone& phone, Library& library, SceneFile& scenes)
    : mPhone(phone),
      mLibrary(library),
      mChains([&] {
          std::map<int, RawXmlData*> heads = scenes.Heads();
          return library.ParseScenes(heads);
      }()),
      mAdapter(library.Initialize()) {
    mPhone.Events().Clear();
}

const std::vector<CommandLists::Element>& CommandLists::Elements(int cmdId, int thermal,
                                                                 std::optional<int> taskId) {
    const int level = std::clamp(thermal, 0, kThermalLevels);
    const auto [made, isNew] = mMade.try_emplace({cmdId, level, taskId});
    const auto chain = mChains.find(cmdId);
    if (isNew && chain != mChains.end()) made->second = Make(*chain->second, level, taskId);
    return made->second;
}

std::vector<CommandLists::Element> CommandLists::Make(const Action& first, int thermal,
                                                      std::optional<int> taskId) {
    const ActionChain chain = mLibrary.Copy(first);
    if (taskId) mAdapter.DoAddTaskBoostInfo(*chain, "targetPid=" + std::to_string(*taskId));
    if (thermal > 0) {
        const int tag = kControlTypeTag;
        const int type = ControlTypeOf(thermal);
        // This client's word on it touches nothing else.
        mAdapter.DoPerfSetConfig(tarquel::kClientPower, 1, &tag, &type);
        mAdapter.DoAddScalingInfo(*chain);
    }
    mPhone.Events().Clear();
    std::vector<Element> elements;
    int index = 0;
    for (const Action* action = chain.get(); action; action = action->next, ++index) {
        if (action->skip != 0 || action->duration < 0) continue;
        Element element{index, action->tagLen, action->duration, action->stateMask, false, {}};
        element.mayBreakThrough = thermal > 0 && action->boostLimitLevel >= thermal;
        const size_t ints = std::min({static_cast<size_t>(std::max(action->tagLen, 0)) * 2,
                                      action->perfList.size() / 2 * 2, kMostInts});
        element.list.assign(action->perfList.begin(),
                            action->perfList.begin() + static_cast<std::ptrdiff_t>(ints));
        elements.push_back(std::move(element));
    }
    return elements;
}

}  // namespace lab
