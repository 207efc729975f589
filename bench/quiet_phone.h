// The least phone that the library runs on: a perf HAL, a log and a server that do nothing, and the
// kernel's nodes as plain files. Nothing is recorded, so that what is measured is the library.
//
// The program that carries it exports the platform's symbols (quiet_phone.cpp), among them open and
// fopen, which lead paths of the kernel's nodes into the phone's folder. A floor that opens a node
// goes the same way and pays the same.
#pragma once

#include <atomic>
#include <string>

namespace bench {

class QuietPhone {
  public:
    // Makes a folder with every node of a device of three clusters (CPU 0-3, 4-6, 7) in memory
    // (/dev/shm) where there is such a folder, else in the temporary folder, and opens the perf HAL
    // so that the plug-in finds it by its name. One phone at a time.
    //   Throws  std::runtime_error when that fails
    QuietPhone();
    ~QuietPhone();

    QuietPhone(const QuietPhone&) = delete;
    QuietPhone& operator=(const QuietPhone&) = delete;

    const std::string& Root() const { return mRoot; }

    // What was asked of the phone since it began, while one thread asked.
    struct Calls {
        long hal = 0;
        long opens = 0;
    };
    Calls CountCalls() const;

    // The HAL's own functions, for floors.
    int (*acquire)(int handle, int durationMs, int* list, int count) = nullptr;
    int (*release)(int handle) = nullptr;

  private:
    std::string mRoot;
    void* mHal = nullptr;
    const std::atomic<long>* mHalCalls = nullptr;
};

// The name by which the plug-in opens the perf HAL.
extern const char* const kHalName;

}  // namespace bench
