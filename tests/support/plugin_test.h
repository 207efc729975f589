// The fixture of the tests that drive the built library: a phone, the library loaded on it as the
// policy server loads it, and what the two said to each other.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/phone/phone.h"
#include "lab/server/library.h"

// One element of a scene file: its keys and values in document order.
using Pairs = std::vector<std::pair<std::string, std::string>>;

// A command's chain of elements, as the server's XML reader makes it.
class Command {
  public:
    explicit Command(int id) : mId(id) { mHead.cmdId = id; }

    Command& Element(const std::string& name, const Pairs& pairs);
    RawXmlData& Last() { return mElements.empty() ? mHead : *mElements.back(); }

    int Id() const { return mId; }
    RawXmlData& Head() { return mHead; }

  private:
    int mId;
    RawXmlData mHead;
    std::vector<std::unique_ptr<RawXmlData>> mElements;
};

// A lock call as one readable text: "acq 0 100ms 0x40800000=1500 -> 1" or "rel 1 -> 0".
std::string ToText(const lab::LockAcquire& call);
std::string ToText(const lab::LockRelease& call);

// Every test also finds, as it ends, that all descriptors are closed and all sections too, that no
// node was open for child processes, that no two calls of the HAL met, and that no lock without an
// end was left behind by another one on the same resources.
class PluginTest : public testing::Test {
  protected:
    PluginTest();
    void TearDown() override;

    static constexpr int kDebug = 3;
    static constexpr int kInfo = 4;
    static constexpr int kError = 6;

    // Starts the phone and loads the library; the clusters are the device's.
    void Boot(const std::string& device = "sm8450") { Boot(device, lab::Phone::Options()); }
    void Boot(const std::string& device, const lab::Phone::Options& options);

    // Boot in pieces, for what happens in between.
    void StartPhone(const std::string& device, const lab::Phone::Options& options = {});
    void LoadLibrary();
    void DescribeClusters();
    void Initialize();

    // Has a loader translate the commands; those that it refuses are missing.
    std::map<int, lab::ActionChain> Parse(std::vector<Command*> commands);

    // A new action in opcode form.
    std::unique_ptr<QcomAction> MakeAction(int cmdId, int durationMs, std::vector<int> pairs,
                                           int boostLimitLevel = -1);

    int Do(const Action& action) { return Adapter().DoAction(action, 0, nullptr); }
    int Do(const Action& action, int payload) { return Adapter().DoAction(action, 1, &payload); }

    // A client's request, or a scene command's through an action of duration 0.
    int Limit(int clientId, const std::vector<std::pair<int, int>>& tagValues);
    int Scene(int cmdId, const std::vector<std::pair<int, int>>& tagValues, int event);

    void Advance(int ms);

    // What was seen since the last call of Forget (or since boot), rendered.
    std::vector<std::string> HalCalls() const;
    std::vector<std::string> Log(int priority) const;
    std::vector<std::string> Sections() const;
    std::vector<std::string> NodeWrites() const;  // "path=value"
    void Forget();
    bool HasLogged(int priority, const std::string& text) const;

    std::string Node(const std::string& path) { return GetPhone().GetKernel().Value(path); }

    // A function that the library exports, by its mangled name.
    template <typename Function>
    Function Exported(const char* symbol) const {
        return reinterpret_cast<Function>(FindExported(symbol));
    }

    lab::Phone& GetPhone() const { return *mPhone; }
    lab::Library& GetLibrary() const { return *mLibrary; }
    PerfAdapter& Adapter() const { return *mAdapter; }

  private:
    void* FindExported(const char* symbol) const;

    // The library goes first: unloading it still meets the phone.
    std::unique_ptr<lab::Phone> mPhone;
    std::unique_ptr<lab::Library> mLibrary;
    PerfAdapter* mAdapter = nullptr;

    const size_t mOpenFilesBefore;
    int mOpenSections = 0;  // less those that were begun and ended since the last Forget
};
