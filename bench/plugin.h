// The built library as the policy server holds it: loaded with dlopen, driven through its slots.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tarquel/action.h"
#include "tarquel/perf_adapter.h"
#include "tarquel/plat.h"
#include "tarquel/raw_xml_data.h"

namespace bench {

struct ActionDeleter {
    void operator()(Action* first) const;
};
using ActionChain = std::unique_ptr<Action, ActionDeleter>;
using ActionMap = std::map<int, Action*>;

// Frees the chains of a parsed configuration as the server does.
void FreeActions(ActionMap* actions);

class Plugin {
  public:
    // Loads the library; throws std::runtime_error when it cannot be loaded.
    Plugin();
    ~Plugin();

    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Has a new loader translate `commands`; the caller frees the result with FreeActions.
    ActionMap* Parse(std::map<int, RawXmlData*>& commands) const;

    // An action that the loader made, with `list` as its opcodes and values.
    ActionChain MakeAction(int cmdId, int durationMs, const std::vector<int>& list) const;

    // Tells the plug-in the clusters of the quiet phone. Before the adapter is built.
    void DescribeClusters() const;

    // Builds the adapter and returns it.
    PerfAdapter& Initialize();

    // Destroys the platform object, and with it the adapter; Initialize builds them anew.
    void Shutdown();

    PerfAdapter& Adapter() const { return *mAdapter; }

  private:
    void* mHandle;
    QcomPerfPlat* (*mGetPlat)();
    QcomPerfLoadXml* (*mNewLoader)();
    PerfAdapter* (*mGetAdapter)(const QcomPerfPlat*);
    PerfAdapter* mAdapter = nullptr;
};

}  // namespace bench
