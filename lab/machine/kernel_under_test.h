// What is known of the kernel that runs beneath the lab, as data: in which rules it differs from
// the phones' kernel, and which of its nodes can be compared.
#pragma once

#include <set>
#include <string>

#include "lab/phone/node_rules.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

struct KernelUnderTest {
    std::string name;
    KernelRules rules;
    // The families of nodes that the kernel must have: cpufreq, online, devfreq, uclamp, stand_ins.
    std::set<std::string> has;
    // Nodes that it has, whose value means nothing.
    std::set<std::string> unreal;
};

// Throws InputError.
KernelUnderTest ReadKernelUnderTest(const YamlNode& root);

}  // namespace lab
