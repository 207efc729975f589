// The platform object: what the policy server asks the library for, and the owner of the adapter.
#pragma once

#include <memory>

#include "tarquel/perf_adapter.h"
#include "tarquel/plat.h"

// Lies in the library's own storage and ends only when the server destroys it: exit() leaves it
// alone, so that threads that are still in a request find it whole. What is said of threads below
// holds for a platform that is not being destroyed: whoever destroys it sees to it that nobody
// calls through a pointer to it any more, which no lock inside could guard. GetInstance may be
// called meanwhile.
class QcomPerfPlat : public TarQuelPlat {
  public:
    // Destroys the adapter first, then the server's side. What configurations said stays until the
    // clusters are described anew, which then begins with nothing.
    ~QcomPerfPlat() override;

    // Builds the one adapter. Always 0; a second call only logs. Threads: any.
    TARQUEL_API int Initialize() override;

    // The one platform object, created on the first call; a destroyed one is created anew. Threads:
    // any.
    TARQUEL_API static QcomPerfPlat* GetInstance();

    // The adapter; null before Initialize. Threads: any.
    TARQUEL_API PerfAdapter* GetAdapter() const;

    // Ends the object and frees nothing.
    static void operator delete(void*) {}

  private:
    // Ends an adapter, which lies in the library's own storage, too.
    struct EndAdapter {
        void operator()(PerfAdapter* adapter) const { adapter->~PerfAdapter(); }
    };

    QcomPerfPlat() = default;

    std::unique_ptr<PerfAdapter, EndAdapter> mAdapter;
};
