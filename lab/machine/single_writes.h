// Lists of single writes: what programs and the perf HAL write to nodes, one write after the other,
// without a plug-in. docs/kernel.md describes the form.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "lab/machine/machine.h"
#include "lab/phone/phone.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

struct SingleWrite {
    enum class Kind {
        kWrite,   // a program's, at `offset`
        kHal,     // a request of the HAL's own; no text takes it back
        kCreate,  // opening with O_CREAT, and a program's write where that works
    } kind = Kind::kWrite;
    int line = 0;
    std::string node;  // a path, or CLUSTER/NAME, gpu/NAME
    std::optional<std::string> text;
    size_t offset = 0;
};

// Writes that follow each other on a phone as it is after boot.
struct WriteCase {
    std::string name;
    std::string device;  // empty: any
    std::vector<SingleWrite> writes;
};

struct WriteList {
    std::string file;
    std::vector<WriteCase> cases;
};

// True for the document of such a list.
bool IsWriteList(const YamlNode& root);

// Throws InputError.
WriteList ReadWriteList(const YamlNode& root);

// "NODE=TEXT" as a user gives one, with the blanks and escapes that YAML's quotes know. Throws
// std::runtime_error.
SingleWrite ParseSingleWrite(const std::string& text);

// Plays the list on the phone, whose nodes are the machine's. Throws std::runtime_error for a node
// that the phone or the machine does not have.
void PlayWrites(const WriteList& list, Machine& machine, Phone& phone, const DeviceProfile& device);

}  // namespace lab
