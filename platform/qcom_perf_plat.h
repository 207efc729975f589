// The platform object: what the policy server asks the library for, and the owner of the adapter.
#pragma once

#include <memory>

#include "tarquel/perf_adapter.h"
#include "tarquel/plat.h"

class QcomPerfPlat : public TarQuelPlat {
  public:
    // Destroys the adapter first, then the server's side.
    ~QcomPerfPlat() override;

    // Builds the one adapter. Always 0; a second call only logs. Threads: any; so are the two
    // below.
    TARQUEL_API int Initialize() override;

    // The one platform object, created on the first call; a destroyed one is created anew.
    TARQUEL_API static QcomPerfPlat* GetInstance();

    // The adapter; null before Initialize.
    TARQUEL_API PerfAdapter* GetAdapter() const;

    // The object lies in the library's own storage: deleting it ends it and frees nothing.
    static void operator delete(void*) {}

  private:
    class Holder;

    explicit QcomPerfPlat(Holder& holder);

    std::unique_ptr<PerfAdapter> mAdapter;
    Holder& mHolder;
};
