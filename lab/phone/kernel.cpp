#include "lab/phone/kernel.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "lab/phone/events.h"
#include "lab/phone/kernel_text.h"

namespace lab {

namespace {

constexpr std::array<std::string_view, 3> kRoots = {"/sys/", "/proc/sys/", "/dev/cpuctl/"};

// In the folder for temporary files, but in memory when that is the disk's common one: a phone has
// hundreds of small files, and a write to a node is meant to be as quick as one to sysfs.
std::string MakeTemporaryFolder() {
    const std::filesystem::path usual = std::filesystem::temp_directory_path();
    const std::filesystem::path first = usual == "/tmp" ? "/dev/shm" : usual;
    for (const std::filesystem::path& parent : {first, usual}) {
        std::string folder = (parent / "tarquel-phone-XXXXXX").string();
        if (mkdtemp(folder.data()) != nullptr) return folder;
    }
    throw std::system_error(errno, std::generic_category(),
                            "cannot make a folder in " + usual.string());
}

}  // namespace

// A node and what has been laid over it. Its file is that of its first name; the other names
// are links to it.
struct Kernel::Entry {
    std::shared_ptr<Node> node;
    std::vector<std::string> names;
    std::optional<std::string> forced;        // what Force says that a read gives
    std::optional<std::string> programState;  // the node's state before the HAL's in-place write
    std::string programShown;                 // what was shown in that state
    std::string onDisk;

    std::string Shown() const { return forced ? *forced : node->Show(); }
};

Kernel::Kernel(const DeviceProfile& profile, Recorder& recorder, const NodeLayout& layOut)
    : mProfile(profile), mRecorder(recorder), mFolder(MakeTemporaryFolder()) {
    for (NamedNode& named : layOut ? layOut(mProfile) : LayOutNodes(mProfile)) {
        Add(std::move(named));
    }
}

Kernel::~Kernel() {
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

Kernel::Entry* Kernel::Find(const std::string& path) const {
    const auto found = mByName.find(path);
    return found == mByName.end() ? nullptr : found->second;
}

void Kernel::Add(NamedNode named) {
    const auto entry = std::make_shared<Entry>();
    entry->node = std::move(named.node);
    entry->names = std::move(named.names);
    for (const std::string& name : entry->names) {
        const std::string file = mFolder + name;
        std::filesystem::create_directories(FolderOf(file));
        if (&name != &entry->names.front()) {
            std::filesystem::create_symlink(mFolder + entry->names.front(), file);
        }
        mEntries[name] = entry;
        mByName[name] = entry.get();
    }
    mBeside.clear();
    UpdateFile(*entry);
}

// Replaces the file in one step, so that a reader sees the old or the new text.
void Kernel::UpdateFile(Entry& entry) const {
    const std::string text = entry.Shown() + "\n";
    if (entry.onDisk == text) return;
    const std::string fresh = mFolder + "/new";
    std::ofstream(fresh, std::ios::binary) << text;
    std::error_code error;
    std::filesystem::rename(fresh, mFolder + entry.names.front(), error);
    if (!error) entry.onDisk = text;
}

// The other nodes of a limit's folder: a write to one end shows in them. A CPU's switch shows in
// the limits of its cluster.
const Kernel::Neighbours& Kernel::Beside(Entry& entry) {
    const auto [found, isNew] = mBeside.try_emplace(&entry);
    Neighbours& beside = found->second;
    const std::string& name = entry.names.front();
    const bool isSwitch = name.ends_with("/online");
    if (!isNew || !(isSwitch || entry.node->KeepsRequests())) return beside;
    const std::string folder = std::string(FolderOf(name)) + (isSwitch ? "/cpufreq/" : "/");
    for (auto next = mEntries.lower_bound(folder);
         next != mEntries.end() && next->first.starts_with(folder); ++next) {
        if (next->second.get() != &entry) beside.push_back(&*next);
    }
    return beside;
}

std::vector<std::string> Kernel::ShownBeside(Entry& entry) {
    const Neighbours& beside = Beside(entry);
    std::vector<std::string> shown;
    shown.reserve(beside.size());
    for (const auto* neighbour : beside) shown.push_back(neighbour->second->Shown());
    return shown;
}

// What they show otherwise than `before`.
std::vector<NodeValue> Kernel::ChangedBeside(Entry& entry, const std::vector<std::string>& before) {
    std::vector<NodeValue> changed;
    const Neighbours& beside = Beside(entry);
    for (size_t i = 0; i < before.size(); ++i) {
        const auto& [path, neighbour] = *beside[i];
        std::string now = neighbour->Shown();
        if (now != before[i]) changed.push_back({path, std::move(now)});
    }
    return changed;
}

// Returns as Node::Store does.
ssize_t Kernel::Store(Entry& entry, const std::string& text, size_t offset, Writer writer) {
    Node& node = *entry.node;
    if (writer == Writer::kHal && node.KeepsRequests()) {
        const std::optional<uint64_t> value = ScanNumber(text);
        if (!value) return -EINVAL;
        node.SetHalRequest(static_cast<int64_t>(*value));
        return static_cast<ssize_t>(text.size());
    }
    const std::string state = node.Save();
    const std::string shown = entry.Shown();
    const ssize_t taken = node.Store(text, offset);
    if (taken < 0) return taken;
    if (writer == Writer::kProgram) {
        if (entry.programState) {
            entry.programState = node.Save();
            entry.programShown = node.Show();
        }
    } else if (!entry.programState && !node.IsCounted()) {
        entry.programState = state;
        entry.programShown = shown;
    }
    return taken;
}

bool Kernel::Owns(const char* path) {
    if (path == nullptr) return false;
    const std::string_view name = path;
    return std::any_of(kRoots.begin(), kRoots.end(),
                       [name](std::string_view root) { return name.starts_with(root); });
}

std::vector<std::string> Kernel::Paths() const {
    std::lock_guard<std::mutex> guard(mMutex);
    std::vector<std::string> paths;
    for (const auto& [path, entry] : mEntries) paths.push_back(path);
    return paths;
}

bool Kernel::Has(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    return Find(path) != nullptr;
}

bool Kernel::IsSameNode(const std::string& path, const std::string& other) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const Entry* const entry = Find(path);
    return entry != nullptr && entry == Find(other);
}

std::string Kernel::Value(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const Entry* const entry = Find(path);
    return entry == nullptr ? "" : entry->Shown();
}

std::string Kernel::ProgramValue(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const Entry* const entry = Find(path);
    if (entry == nullptr) return "";
    return entry->programState ? entry->programShown : entry->Shown();
}

std::optional<Kernel::LimitRequests> Kernel::RequestsOn(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const Entry* const entry = Find(path);
    if (entry == nullptr || !entry->node->KeepsRequests()) return std::nullopt;
    const auto toNumber = [](const std::string& state) {
        return static_cast<int64_t>(ScanNumber(state).value_or(0));
    };
    LimitRequests requests;
    const std::string present = entry->node->Save();
    requests.program = toNumber(entry->programState.value_or(present));
    if (entry->programState) requests.inPlace = toNumber(present);
    requests.hal = entry->node->HalRequest();
    return requests;
}

int Kernel::Open(const std::string& path, bool forWriting) {
    std::lock_guard<std::mutex> guard(mMutex);
    Entry* const entry = Find(path);
    const NodeAccess::Kind kind = forWriting ? NodeAccess::Kind::kWrite : NodeAccess::Kind::kRead;
    const std::string value = entry == nullptr ? "" : entry->Shown();
    int error = 0;
    if (entry == nullptr) error = ENOENT;
    if (entry != nullptr && forWriting && entry->node->IsReadOnly()) error = EACCES;
    if (entry != nullptr && !forWriting) UpdateFile(*entry);
    if (!forWriting || error != 0) {
        mRecorder.Add(NodeAccess{kind, path, "", value, value, error, false});
    }
    return error;
}

int Kernel::MissingError(const std::string& path, bool creates) const {
    std::lock_guard<std::mutex> guard(mMutex);
    // Where there is nothing that creates files, sysctl says so before it is asked to.
    const bool isSysctl = path.starts_with("/proc/sys/");
    const std::string folder = std::string(FolderOf(path)) + "/";
    const auto first = mEntries.lower_bound(folder);
    const bool hasFolder = first != mEntries.end() && first->first.starts_with(folder);
    return creates && !isSysctl && hasFolder ? EACCES : ENOENT;
}

int Kernel::Write(const std::string& path, const std::string& text, Writer writer) {
    const ssize_t taken = WriteAt(path, text, 0, writer);
    return taken < 0 ? static_cast<int>(-taken) : 0;
}

ssize_t Kernel::WriteAt(const std::string& path, const std::string& text, size_t offset,
                        Writer writer) {
    std::lock_guard<std::mutex> guard(mMutex);
    const bool byHal = writer != Writer::kProgram;
    Entry* const entry = Find(path);
    if (entry == nullptr) {
        mRecorder.Add(NodeAccess{NodeAccess::Kind::kWrite, path, text, "", "", ENOENT, byHal});
        return -ENOENT;
    }
    const std::string before = entry->Shown();
    const std::vector<std::string> beside = ShownBeside(*entry);
    const ssize_t taken = Store(*entry, text, offset, writer);
    const int error = taken < 0 ? static_cast<int>(-taken) : 0;
    if (error == 0) entry->forced.reset();
    mRecorder.Add(NodeAccess{NodeAccess::Kind::kWrite, path, text, before, entry->Shown(), error,
                             byHal, ChangedBeside(*entry, beside)});
    return taken;
}

void Kernel::Withdraw(const std::string& path, Writer writer) {
    std::lock_guard<std::mutex> guard(mMutex);
    Entry* const entry = Find(path);
    if (entry == nullptr) return;
    const std::string before = entry->Shown();
    const std::vector<std::string> beside = ShownBeside(*entry);
    std::string requested;
    if (writer == Writer::kHal && entry->node->KeepsRequests()) {
        if (!entry->node->HalRequest()) return;
        entry->node->SetHalRequest(std::nullopt);
    } else {
        if (!entry->programState) return;
        requested = *entry->programState;
        entry->node->Restore(requested);
        entry->programState.reset();
    }
    entry->forced.reset();
    mRecorder.Add(NodeAccess{NodeAccess::Kind::kWrite, path, requested, before, entry->Shown(), 0,
                             true, ChangedBeside(*entry, beside)});
}

std::vector<NodeValue> Kernel::Force(const std::string& path, const std::string& text) {
    std::lock_guard<std::mutex> guard(mMutex);
    Entry* entry = Find(path);
    if (entry == nullptr) {
        Add({{path}, MakeFreeNode(text)});
        return {};
    }
    const std::vector<std::string> beside = ShownBeside(*entry);
    // A state that the node can have is set as such; anything else covers it.
    entry->forced.reset();
    entry->node->Restore(text);
    if (entry->node->Show() != text) entry->forced = text;
    return ChangedBeside(*entry, beside);
}

void Kernel::Remove(const std::string& path) {
    std::lock_guard<std::mutex> guard(mMutex);
    if (Find(path) == nullptr) return;
    const std::shared_ptr<Entry> entry = mEntries.at(path);
    // The first name holds the file that the others link to.
    const std::vector<std::string> gone =
        path == entry->names.front() ? entry->names : std::vector<std::string>{path};
    for (const std::string& name : gone) {
        std::error_code ignored;
        std::filesystem::remove(mFolder + name, ignored);
        mEntries.erase(name);
        mByName.erase(name);
    }
    mBeside.clear();
}

std::string Kernel::FileOf(const std::string& path) const {
    return mFolder + path;
}

std::string Kernel::FileToRead(const std::string& path) const {
    std::lock_guard<std::mutex> guard(mMutex);
    const Entry* const entry = Find(path);
    const bool isReadable = entry == nullptr || entry->node->ReadError() == 0;
    return isReadable ? mFolder + path : mFolder;
}

const std::string& Kernel::Folder() const {
    std::lock_guard<std::mutex> guard(mMutex);
    for (const auto& [path, entry] : mEntries) UpdateFile(*entry);
    return mFolder;
}

}  // namespace lab
