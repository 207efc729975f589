#include "lab/server/library.h"

#include <dlfcn.h>
#include <utils/String8.h>

#include <filesystem>
#include <new>
#include <stdexcept>

#include "lab/phone/real_timers.h"

namespace lab {
namespace {

// Constructor of an action in opcode form, and of the loader's entry, as the standard library in
// use mangles them.
#ifdef _LIBCPP_VERSION
constexpr char kParserXml[] =
    "_ZN15QcomPerfLoadXml9ParserXmlERNSt3__13mapIiP10RawXmlDataNS0_4lessIiEENS0_9allocatorINS0_"
    "4pairIKiS3_EEEEEE";
constexpr char kNewAction[] =
    "_ZN10QcomActionC1EiNSt3__112basic_stringIcNS0_11char_traitsIcEENS0_9allocatorIcEEEEiiiPi";
#else
constexpr char kParserXml[] =
    "_ZN15QcomPerfLoadXml9ParserXmlERSt3mapIiP10RawXmlDataSt4lessIiESaISt4pairIKiS2_EEE";
constexpr char kNewAction[] =
    "_ZN10QcomActionC1EiNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEiiiPi";
#endif

// Frees a loader through its vtable: destructor, deleting destructor, ParserXml. Called by slot: a
// stand-in class with a virtual destructor would let the compiler assume that it knows every
// override.
struct LoaderDeleter {
    void operator()(QcomPerfLoadXml* loader) const {
        using DeletingDestructor = void (*)(QcomPerfLoadXml*);
        constexpr size_t kDeletingSlot = 1;
        (*reinterpret_cast<DeletingDestructor**>(loader))[kDeletingSlot](loader);
    }
};
using LoaderOwner = std::unique_ptr<QcomPerfLoadXml, LoaderDeleter>;

std::string BesideProgram() {
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    return program.parent_path().parent_path() / "lib" / "libtarquel_qcom.so";
}

}  // namespace

void ActionDeleter::operator()(Action* first) const {
    while (first) {
        Action* next = first->next;
        delete first;
        first = next;
    }
}

Library::Library(const std::string& file) : mFile(file.empty() ? BesideProgram() : file) {
    mHandle = dlopen(mFile.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!mHandle)
        throw std::runtime_error(std::string("the plug-in cannot be loaded: ") + dlerror());
    // What a configuration of an earlier Library said is forgotten when clusters are described.
    RawXmlData head;
    RawXmlData clusters;
    clusters.name = "qcom_cpu_info";
    head.next = &clusters;
    std::map<int, RawXmlData*> device{{1, &head}};
    ParseScenes(device);
}

Library::~Library() {
    EndPlatform();
    // No callback of its timer begins any more; those under way end with the phone still there.
    WaitForTimerCallbacks();
    dlclose(mHandle);
}

void Library::EndPlatform() {
    mAdapter = nullptr;
    reinterpret_cast<TarQuelPlat*>(Find<QcomPerfPlat* (*)()>("GetPlat")())->~TarQuelPlat();
}

template <typename Function>
Function Library::Find(const char* symbol) const {
    void* address = dlsym(mHandle, symbol);
    if (!address) throw std::runtime_error(mFile + " does not export " + symbol);
    return reinterpret_cast<Function>(address);
}

std::map<int, ActionChain> Library::ParseScenes(std::map<int, RawXmlData*>& heads) {
    using Parser = std::map<int, Action*>* (*)(QcomPerfLoadXml*, std::map<int, RawXmlData*>&);
    const auto parse = Find<Parser>(kParserXml);
    const LoaderOwner loader(Find<QcomPerfLoadXml* (*)()>("CreateTarQuelLoadXml")());
    const std::unique_ptr<std::map<int, Action*>> actions(parse(loader.get(), heads));
    std::map<int, ActionChain> chains;
    if (!actions) return chains;
    for (const auto& [id, first] : *actions) chains.emplace(id, ActionChain(first));
    return chains;
}

ActionChain Library::ParseInteractive(RawXmlData& element) {
    using Parser = Action* (*)(QcomPerfLoadXml*, RawXmlData&);
    const auto parse = Find<Parser>("_ZN15QcomPerfLoadXml19InterRawXmlToActionER10RawXmlData");
    const LoaderOwner loader(Find<QcomPerfLoadXml* (*)()>("CreateTarQuelLoadXml")());
    return ActionChain(parse(loader.get(), element));
}

PerfAdapter& Library::Initialize() {
    QcomPerfPlat* platform = Find<QcomPerfPlat* (*)()>("GetPlat")();
    reinterpret_cast<TarQuelPlat*>(platform)->Initialize();
    using Getter = PerfAdapter* (*)(const QcomPerfPlat*);
    mAdapter = Find<Getter>("_ZNK12QcomPerfPlat10GetAdapterEv")(platform);
    if (!mAdapter) throw std::runtime_error("the plug-in has no adapter after Initialize()");
    return *mAdapter;
}

PerfAdapter& Library::Restart() {
    EndPlatform();
    return Initialize();
}

ActionChain Library::Copy(const Action& first) const {
    using Constructor = void (*)(void*, int, std::string, int, int, int, int*);
    const auto construct = Find<Constructor>(kNewAction);
    ActionChain copy;
    Action** end = nullptr;
    for (const Action* action = &first; action; action = action->next) {
        using Free = void (*)(void*);
        std::unique_ptr<void, Free> storage(::operator new(sizeof(QcomAction)), ::operator delete);
        std::vector<int> pairs = action->perfList;
        construct(storage.get(), action->cmdId, action->name, action->duration,
                  action->boostLimitLevel, static_cast<int>(pairs.size() / 2), pairs.data());
        auto* made = static_cast<QcomAction*>(storage.release());
        made->tagLen = action->tagLen;
        made->headValue0 = action->headValue0;
        made->headValue1 = action->headValue1;
        made->headValue2 = action->headValue2;
        made->offDelayTime = action->offDelayTime;
        made->offDelayPerc = action->offDelayPerc;
        made->stateMask = action->stateMask;
        made->hasOffDelay = action->hasOffDelay;
        made->skip = action->skip;
        made->taskBoost = action->taskBoost;
        made->breakThrough = action->breakThrough;
        made->reserved = action->reserved;
        made->perfList = action->perfList;
        made->boostLevels = action->boostLevels;
        made->interList = static_cast<const QcomAction*>(action)->interList;
        if (end) {
            *end = made;
        } else {
            copy.reset(made);
        }
        end = &made->next;
    }
    return copy;
}

int Library::DoInterFreqAction(const Action& action, const int* payload) {
    using Member = int (*)(PerfAdapter*, const QcomAction&, const int*);
    return Find<Member>("_ZN15QcomPerfAdapter17DoInterFreqActionERK10QcomActionPKi")(
        mAdapter, static_cast<const QcomAction&>(action), payload);
}

std::string Library::DumpFreqList() {
    using Getter = QcomFreqManager* (*)(const PerfAdapter*);
    using Member = void (*)(QcomFreqManager*, android::String8&);
    QcomFreqManager* manager = Find<Getter>("_ZNK15QcomPerfAdapter11FreqManagerEv")(mAdapter);
    if (!manager) return "";
    android::String8 text;
    Find<Member>("_ZN15QcomFreqManager12DumpFreqListERN7android7String8E")(manager, text);
    return text.string();
}

}  // namespace lab
