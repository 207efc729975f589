// A device profile of any content: it is read, or the reader says where it is wrong; a phone can be
// laid out from what was read.
#include <string>

#include "fuzz/finding.h"
#include "lab/phone/device_profile.h"
#include "lab/phone/node_rules.h"
#include "lab/yaml/yaml_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const lab::DeviceProfile profile =
            lab::ReadDeviceProfile(lab::LoadYamlText(text, "input.yaml"));
        for (const lab::NamedNode& named : lab::LayOutNodes(profile)) {
            fuzz::Require(!named.names.empty(), "a node without a name");
            named.node->Show();
        }
    } catch (const lab::InputError& error) {
        fuzz::Require(error.what()[0] != '\0', "a mistake without words");
    }
    return 0;
}
