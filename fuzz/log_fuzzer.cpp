// A capture of any content: its lines and its story are told, whatever they are.
#include <sstream>
#include <string>

#include "fuzz/finding.h"
#include "lab/logcat/story_teller.h"
#include "lab/phone/phone.h"

namespace {

constexpr char kDevice[] = "sm8450";

// Never destroyed: the fuzzer looks into the plug-in's memory when the program has ended.
struct World {
    lab::Phone phone{lab::LoadDeviceProfile(kDevice)};
    const lab::KnownNodes nodes{phone.GetKernel().Profile()};
    lab::Library library{""};
    lab::SceneFile scenes{lab::SceneFile::Load(lab::DataFolder() + "/scenes/" + kDevice + ".xml")};
    lab::CommandLists lists{phone, library, scenes};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World* const world = new World;
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    const lab::ReadLines capture = lab::ReadCapture(in, "input.txt");
    lab::Time last{};
    for (const lab::CapturedLine& line : capture.lines) {
        fuzz::Require(line.at >= last, "lines that are not in the order of their times");
        last = line.at;
    }
    fuzz::Require(last <= capture.end, "a line behind the capture's end");
    lab::LogStory story;
    lab::LogEvidence evidence;
    lab::StoryTeller teller(world->nodes, world->scenes, world->lists, story,
                            [&](lab::LogRequest&& request) {
                                fuzz::Require(request.line > 0 && request.at <= capture.end,
                                              "a request without its line or behind the end");
                            });
    for (const lab::CapturedLine& line : capture.lines) {
        evidence.Add(line);
        story.detail = evidence.Detail();
        teller.Add(line);
    }
    teller.Flush();
    evidence.NearestDevice();
    evidence.Contradictions(world->phone.GetKernel().Profile());
    world->phone.Events().Clear();
    return 0;
}
