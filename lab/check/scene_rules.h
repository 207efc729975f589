// The rules of `check`, a file for each job. Each looks at what it is about and adds what it finds.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "lab/check/scene_check.h"
#include "lab/hal/step_table.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/phone.h"
#include "lab/scenes/scene_file.h"
#include "lab/scenes/scene_meaning.h"

namespace lab {

// What the rules look at, and where their findings go.
struct RuleContext {
    const SceneFile& scenes;
    const DeviceProfile& device;
    SceneMeaning meaning;
    Layout layout;
    Phone& phone;  // idle; of the device
    std::vector<Finding> findings;
    std::set<std::string> unchecked;  // keys whose nodes the lab does not know

    void Add(Severity severity, const std::string& rule, Place place, std::string where,
             std::string message, std::string advice);
    void Add(Severity severity, const std::string& rule, const ElementMeaning& element, Place place,
             std::string message, std::string advice);
};

// What the loader of the plug-in refuses or says something of: each key, not the first alone.
void CheckRefusals(RuleContext& context, const CommandMeaning& command);

// The names of the tunables from the one with this index on.
std::string NamesOf(const std::vector<const KeyMeaning*>& pairs, size_t from);

// The clusters and frequency levels that the file describes.
void CheckDescriptions(RuleContext& context);

// How the keys of an element stand together: repeated, too many, in the wrong order, of no use.
void CheckElement(RuleContext& context, const ElementMeaning& element);

// The frequencies that the tag takes, in its unit; nothing for one that takes none, or any.
std::optional<StepTable> StepsOfTag(int tag, const DeviceProfile& device, Layout layout);

// What the device makes of the values: steps of its tables, nodes that it lacks, ranges.
void CheckValues(RuleContext& context, const ElementMeaning& element);

// The ceilings of a frequency level.
void CheckLevelValues(RuleContext& context, const ElementMeaning& element);

// An element of the interactive governor.
void CheckInteractive(RuleContext& context, const ElementMeaning& element);

// The frequency levels that the file describes, each once; which ones there are.
std::set<int> CheckLevels(RuleContext& context);

// Which of these levels "boost_limit_level" reaches, and how often a command may boost.
void CheckBoosts(RuleContext& context, const CommandMeaning& command, const std::set<int>& levels);

}  // namespace lab
