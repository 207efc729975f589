// What a request and the library take, apart from time: the heap, the file, the work at load time.
// None of it depends on how busy the machine is, so that a step back shows here first.
#include <gtest/gtest.h>

#include "bench/facts.h"
#include "bench/plugin.h"
#include "bench/quiet_phone.h"
#include "bench/requests.h"

namespace {

class Footprint : public testing::Test {
  protected:
    void Initialize() {
        mPlugin.DescribeClusters();
        mPlugin.Initialize();
    }
    std::vector<bench::Request> Requests() { return bench::MakeRequests(mPlugin, mPhone); }

    // What `run` asks of the phone, as text.
    std::string CallsOf(const std::function<void()>& run) const {
        const bench::QuietPhone::Calls before = mPhone.CountCalls();
        run();
        const bench::QuietPhone::Calls after = mPhone.CountCalls();
        return std::to_string(after.hal - before.hal) + " HAL calls, " +
               std::to_string(after.opens - before.opens) + " files opened";
    }

    void ExpectLimits(const std::vector<bench::Fact>& facts) {
        int limited = 0;
        for (const bench::Fact& fact : facts) {
            if (fact.most < 0) continue;
            ++limited;
            EXPECT_GE(fact.value, 0) << fact.name;
            EXPECT_LE(fact.value, fact.most) << fact.name;
        }
        EXPECT_GT(limited, 0);
    }

    bench::QuietPhone mPhone;
    bench::Plugin mPlugin;
};

}  // namespace

TEST_F(Footprint, WarmRequestsTakeNothingFromTheHeap) {
    Initialize();
    for (const bench::Request& request : Requests()) {
        EXPECT_EQ(bench::WarmAllocations(request), 0) << request.name;
    }
}

TEST_F(Footprint, RequestsAskOfThePhoneWhatTheirFloorsAsk) {
    Initialize();
    for (const bench::Request& request : Requests()) {
        request.enter();
        request.run();
        EXPECT_EQ(CallsOf(request.run), CallsOf(request.floor)) << request.name;
        request.leave();
    }
}

TEST_F(Footprint, StartReadsEachDefaultOnce) {
    mPlugin.DescribeClusters();
    const std::string start = CallsOf([this] { mPlugin.Initialize(); });
    EXPECT_EQ(start, CallsOf([] { bench::ReadDefaultNodes(); }));
}

TEST_F(Footprint, AdapterAndConfigurationKeepWithinTheirMemory) {
    ExpectLimits(bench::MeasureMemory(mPlugin));
}

TEST_F(Footprint, LibraryStaysSmallAndLoadsWithoutCodeOfItsOwn) {
    ExpectLimits(bench::DescribeLibraryFile());
}
