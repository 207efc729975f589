// Kernel nodes as reports name them, and the nodes behind each tag.
#pragma once

#include <string>
#include <vector>

#include "lab/names/tag_names.h"
#include "lab/phone/device_profile.h"

namespace lab {

// "cpu4 scaling_max_freq", "gpu devfreq/max_freq", "ddr bwmon min_freq", "walt sched_boost"; a path
// that fits no family stays whole.
std::string ShortNode(const std::string& path);

// The unit of what a node reads, "" when it has none.
std::string NodeUnit(const std::string& path);

// What a node reads, with its unit if there is one: the kernel separates several numbers by tabs,
// which would tear columns.
std::string NodeText(std::string value, const std::string& unit = "");

// The node at the other end of a range: of a minimum its maximum and the reverse. Empty when the
// name is no end of a range.
std::string OtherEnd(const std::string& path);

// The nodes of `tag` on a device whose clusters are those of the profile; several CPUs of a cluster
// share one. Empty for a tag without nodes.
std::vector<std::string> TagNodes(int tag, const DeviceProfile& device);

// The layout that the device's own clusters make.
Layout LayoutOf(const DeviceProfile& device);

}  // namespace lab
