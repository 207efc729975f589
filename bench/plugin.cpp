#include "bench/plugin.h"

#include <dlfcn.h>

#include <stdexcept>

namespace bench {

namespace {

// Slots of the platform object and of a loader behind their pairs of destructors.
constexpr size_t kDestroy = 0;
constexpr size_t kDelete = 1;
constexpr size_t kParserXml = 2;

// A class of the library's has no type information here: its operations are called by slot.
template <typename Function>
Function Slot(void* object, size_t index) {
    return reinterpret_cast<Function>((*static_cast<void***>(object))[index]);
}

template <typename Function>
void Find(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(handle, name));
    if (function == nullptr) throw std::runtime_error(std::string("not exported: ") + name);
}

}  // namespace

void ActionDeleter::operator()(Action* first) const {
    while (first != nullptr) {
        Action* const next = first->next;
        delete first;
        first = next;
    }
}

void FreeActions(ActionMap* actions) {
    for (auto& [command, first] : *actions) ActionDeleter()(first);
    delete actions;
}

Plugin::Plugin() : mHandle(dlopen(TARQUEL_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {
    if (mHandle == nullptr) throw std::runtime_error(dlerror());
    Find(mHandle, "GetPlat", mGetPlat);
    Find(mHandle, "CreateTarQuelLoadXml", mNewLoader);
    Find(mHandle, "_ZNK12QcomPerfPlat10GetAdapterEv", mGetAdapter);
}

Plugin::~Plugin() {
    Shutdown();
    dlclose(mHandle);
}

ActionMap* Plugin::Parse(std::map<int, RawXmlData*>& commands) const {
    QcomPerfLoadXml* const loader = mNewLoader();
    ActionMap* const actions = Slot<ActionMap* (*)(void*, std::map<int, RawXmlData*>&)>(
        loader, kParserXml)(loader, commands);
    Slot<void (*)(void*)>(loader, kDelete)(loader);
    return actions;
}

void Plugin::DescribeClusters() const {
    RawXmlData head;
    RawXmlData clusters;
    head.next = &clusters;
    clusters.name = "qcom_cpu_info";
    clusters.keys = {"lit_cpu_num", "big_cpu_num", "prime_cpu_num", "isolation"};
    clusters.values = {"0-3", "4-6", "7-7", "1"};
    std::map<int, RawXmlData*> commands{{1, &head}};
    FreeActions(Parse(commands));
}

PerfAdapter& Plugin::Initialize() {
    QcomPerfPlat* const platform = mGetPlat();
    reinterpret_cast<TarQuelPlat*>(platform)->Initialize();
    mAdapter = mGetAdapter(platform);
    return *mAdapter;
}

void Plugin::Shutdown() {
    QcomPerfPlat* const platform = mGetPlat();
    Slot<void (*)(void*)>(platform, kDestroy)(platform);
    mAdapter = nullptr;
}

ActionChain Plugin::MakeAction(int cmdId, int durationMs, const std::vector<int>& list) const {
    RawXmlData head;
    RawXmlData element;
    head.next = &element;
    element.cmdId = cmdId;
    element.name = "boost";
    std::map<int, RawXmlData*> commands{{cmdId, &head}};
    const std::unique_ptr<ActionMap> actions(Parse(commands));
    ActionChain action(actions->at(cmdId));
    action->duration = durationMs;
    action->perfList.assign(list.begin(), list.end());
    action->tagLen = static_cast<int>(list.size() / 2);
    return action;
}

}  // namespace bench
