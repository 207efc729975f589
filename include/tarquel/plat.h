// What the policy server sees first: the platform base and the exported entry points.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tarquel/api.h"

class QcomFreqManager;
class QcomPerfAdapter;
class QcomPerfLoadXml;
class QcomPerfPlat;

// Host-declared base of every platform object. Holds one object of the server's side and destroys
// it with itself.
class TarQuelPlat {
  public:
    // The object on the server's side, known here only by its virtual destructor.
    class HostSide {
      public:
        virtual ~HostSide() = default;
    };

    virtual ~TarQuelPlat() {
        mHostField = 0;
        delete mHostSide;
    }

    // Builds the platform's adapter on the first call. Always 0.
    virtual int Initialize() = 0;

    TarQuelPlat(const TarQuelPlat&) = delete;
    TarQuelPlat& operator=(const TarQuelPlat&) = delete;

    // A platform is never freed as its base: only the platform knows where its storage lies.
    static void operator delete(void*) { __builtin_trap(); }

  protected:
    TarQuelPlat() = default;

  private:
    HostSide* mHostSide = nullptr;
    int32_t mHostField = 0;
};

extern "C" {
// The one platform object, created on the first call. The plug-in keeps ownership. Threads: any.
TARQUEL_API QcomPerfPlat* GetPlat();

// A new loader; the caller owns it and deletes it through its virtual destructor.
TARQUEL_API QcomPerfLoadXml* CreateTarQuelLoadXml();

// A new frequency manager for `adapter` at every call; the caller owns it. Null for a null adapter.
TARQUEL_API QcomFreqManager* GetFreqManager(QcomPerfAdapter& adapter);
}
