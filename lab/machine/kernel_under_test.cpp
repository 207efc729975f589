#include "lab/machine/kernel_under_test.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "lab/names/text.h"

namespace lab {

namespace {

// A rule that a kernel may have in another form, by the name that its file uses.
struct RuleRow {
    std::string_view name;
    void (*differ)(KernelRules&);
};
// clang-format off
constexpr auto kRules = std::to_array<RuleRow>({
    {"cpu_limits_are_snapped",       [](KernelRules& rules) { rules.snapsCpuLimits = true; }},
    {"offline_write_is_ebusy",       [](KernelRules& rules) { rules.offlineWriteError = EBUSY; }},
    {"offline_read_is_ebusy",        [](KernelRules& rules) { rules.offlineReadError = EBUSY; }},
    {"negative_request_is_einval",   [](KernelRules& rules) { rules.refusesNegativeRequest = true; }},
    {"true_and_false_are_booleans",  [](KernelRules& rules) { rules.knowsTrueAndFalse = true; }},
});
// clang-format on

const std::vector<std::string> kFamilies = {"cpufreq", "online", "devfreq", "uclamp", "stand_ins"};

void ReadDifference(const YamlNode& node, KernelRules& rules) {
    node.ExpectFields("a difference", {"rule", "why"});
    node.Get("why").AsText("the reason");
    const YamlNode& rule = node.Get("rule");
    const std::string& name = rule.AsText("the name of a rule");
    const auto row = std::find_if(kRules.begin(), kRules.end(),
                                  [&name](const RuleRow& known) { return known.name == name; });
    if (row == kRules.end()) {
        std::vector<std::string> names;
        for (const RuleRow& known : kRules) names.emplace_back(known.name);
        rule.Fail("there is no rule '" + name + "'" + DidYouMean(name, names) +
                  "; the rules are: " + Join(names));
    }
    row->differ(rules);
}

}  // namespace

KernelUnderTest ReadKernelUnderTest(const YamlNode& root) {
    root.ExpectFields("a kernel", {"kernel", "has", "differs", "unreal"});
    KernelUnderTest kernel;
    kernel.name = root.Get("kernel").AsText("the kernel's name");
    for (const YamlNode& family : root.Get("has").AsList("families of nodes")) {
        const std::string& name = family.AsText("a family of nodes");
        if (std::find(kFamilies.begin(), kFamilies.end(), name) == kFamilies.end()) {
            family.Fail("there is no family '" + name + "'; the families are: " + Join(kFamilies));
        }
        kernel.has.insert(name);
    }
    for (const YamlNode& difference : root.Get("differs").AsList("differences")) {
        ReadDifference(difference, kernel.rules);
    }
    for (const YamlNode& node : root.Get("unreal").AsList("nodes")) {
        node.ExpectFields("an unreal node", {"node", "why"});
        node.Get("why").AsText("the reason");
        kernel.unreal.insert(node.Get("node").AsText("the path of a node"));
    }
    return kernel;
}

}  // namespace lab
