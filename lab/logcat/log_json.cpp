#include "lab/logcat/log_json.h"

#include <nlohmann/json.hpp>

#include "lab/names/resource_names.h"

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

// Fills in what one kind of event has to say.
class Filler {
  public:
    Filler(Json& json, Layout layout) : mJson(json), mLayout(layout) {}

    void operator()(const RequestBegin& begin) {
        mJson["event"] = "request";
        mJson["text"] = begin.text;
        if (begin.line != 0) mJson["line"] = begin.line;
    }
    void operator()(const RequestEnd& end) {
        mJson["event"] = "result";
        mJson["text"] = end.result;
    }
    void operator()(const LogLine& line) {
        mJson["event"] = "log";
        mJson["priority"] = line.priority;
        if (line.tag) mJson["tag"] = *line.tag;
        mJson["text"] = line.text;
    }
    void operator()(const TraceSection& section) {
        mJson["event"] = "trace";
        mJson["begin"] = section.begin;
        if (section.begin) mJson["name"] = section.name;
    }
    void operator()(const LockAcquire& acquire) {
        mJson["event"] = !acquire.IsGranted() ? "refused" : "lock";
        SetHandle(acquire.returned, acquire.isEarlier);
        if (acquire.requestedHandle != 0) mJson["renews"] = acquire.requestedHandle;
        if (acquire.isEarlier) {
            mJson["earlier"] = true;
        } else {
            mJson["duration_ms"] = acquire.durationMs;
        }
        if (acquire.earlierTag >= 0) mJson["tag"] = TagLabel(acquire.earlierTag, mLayout);
        if (!acquire.list.empty()) mJson["pairs"] = PairsJson(acquire.list, mLayout);
    }
    void operator()(const LockRelease& release) {
        mJson["event"] = "release";
        SetHandle(release.handle, release.handle < -1);
        mJson["was_held"] = release.wasHeld;
    }
    void operator()(const LockExpire& expire) {
        mJson["event"] = "expire";
        mJson["handle"] = expire.handle;
    }
    void operator()(const NodeAccess& access) {
        const bool isWrite = access.kind == NodeAccess::Kind::kWrite;
        mJson["event"] = isWrite ? "write" : "read";
        mJson["path"] = access.path;
        if (access.error != 0) mJson["errno"] = access.error;
        if (isWrite) {
            mJson["requested"] = access.requested;
            mJson["by"] = access.byHal ? "hal" : "plug-in";
            mJson["before"] = access.isBeforeUnknown ? Json() : Json(access.before);
        }
        mJson["value"] = access.after;
    }
    void operator()(const TimerEvent& timer) {
        mJson["event"] = "timer";
        constexpr const char* kWords[] = {"created", "armed", "disarmed", "over", "deleted"};
        mJson["what"] = kWords[static_cast<size_t>(timer.kind)];
        if (timer.kind == TimerEvent::Kind::kArm) mJson["duration_ms"] = timer.ms;
    }
    void operator()(const JankRecord& record) {
        mJson["event"] = "jank";
        mJson["id"] = record.id;
        mJson["text"] = record.text;
    }

  private:
    // Null where the log does not tell the number.
    void SetHandle(int handle, bool mayBeNameless) {
        mJson["handle"] = mayBeNameless && handle < 0 ? Json() : Json(handle);
    }

    Json& mJson;
    const Layout mLayout;
};

}  // namespace

Json PairsJson(const std::vector<int>& list, Layout layout) {
    Json pairs = Json::array();
    for (size_t i = 0; i + 1 < list.size(); i += 2) {
        pairs.push_back({{"name", ResourceOf(list[i], layout).name},
                         {"opcode", static_cast<unsigned>(list[i])},
                         {"value", list[i + 1]}});
    }
    return pairs;
}

Json EventJson(const Event& event, Layout layout) {
    Json json;
    json["at_ms"] = std::chrono::duration<double, std::milli>(event.at).count();
    std::visit(Filler(json, layout), event.what);
    return json;
}

}  // namespace lab
