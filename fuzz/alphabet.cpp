#include "fuzz/alphabet.h"

#include <fmt/format.h>

#include <utility>

#include "base/ids.h"

namespace fuzz {
namespace {

constexpr int64_t kHzPerMhz = 1'000'000;

// What a breakthrough of game_loading, of two and a half seconds, outlasts once and not twice.
constexpr int64_t kWaitMs = 2000;

// Builds an alphabet's letters.
class Letters {
  public:
    Letters(const lab::DeviceProfile& device, const lab::SceneFile& scenes)
        : mDevice(device), mScenes(scenes), mLayout(scenes.ClusterLayout()) {}

    // The step that lies at `percent` of what the tag's cluster, or the GPU, can run at.
    int Step(const std::string& tag, int percent) const {
        std::vector<int64_t> steps;
        if (tag.starts_with("gpu")) {
            for (auto mhz = mDevice.gpuMhz.rbegin(); mhz != mDevice.gpuMhz.rend(); ++mhz) {
                steps.push_back(*mhz * kHzPerMhz);
            }
        } else {
            steps = mDevice.FindCluster(tag.substr(0, tag.find('_')))->khz;
        }
        return static_cast<int>(steps[(steps.size() - 1) * static_cast<size_t>(percent) / 100]);
    }

    using Pairs = std::vector<std::pair<std::string, int>>;

    void Limit(int client, const Pairs& pairs) {
        Add(lab::SetLimits{client, TagsOf(pairs)},
            fmt::format("limit: {{client: {}, tags: {{{}}}}}", lab::ClientLabel(client),
                        TextOf(pairs)));
    }

    void Group(int client, int durationMs, const Pairs& pairs) {
        lab::SetLimits request{client, {{lab::kGroupTag, durationMs}}};
        const std::vector<lab::TagValue> tags = TagsOf(pairs);
        request.tags.insert(request.tags.end(), tags.begin(), tags.end());
        const std::string text = pairs.empty() ? "" : fmt::format(", tags: {{{}}}", TextOf(pairs));
        Add(std::move(request), fmt::format("group: {{client: {}, duration_ms: {}{}}}",
                                            lab::ClientLabel(client), durationMs, text));
    }

    // Each client asks for each of the tag's values.
    void LimitAll(const std::vector<int>& clients, const std::string& tag,
                  const std::vector<int>& values) {
        for (const int client : clients) {
            for (const int value : values) Limit(client, {{tag, value}});
        }
    }

    void Control(int type) {
        Add(lab::SetLimits{tarquel::kClientTemp, {{lab::kControlTypeTag, type}}},
            fmt::format("control: {}", type));
    }

    void Event(const std::string& command) {
        Add(lab::DoCommand{IdOf(command), {0}, ""}, "on: " + command);
        Add(lab::DoCommand{IdOf(command), {-1}, ""}, "off: " + command);
    }

    void Run(const std::string& command) {
        Add(lab::DoCommand{IdOf(command), {}, ""}, "do: " + command);
    }

    void Time() {
        Add(lab::Wait{}, fmt::format("wait: {}", kWaitMs));
        mLetters.back().deed.afterMs = kWaitMs;
    }

    std::vector<Letter> Take() { return std::exchange(mLetters, {}); }

  private:
    void Add(lab::Request request, std::string step) {
        mLetters.push_back({{0, std::move(request)}, std::move(step)});
    }

    std::vector<lab::TagValue> TagsOf(const Pairs& pairs) const {
        std::vector<lab::TagValue> tags;
        for (const auto& [name, value] : pairs)
            tags.push_back({*lab::FindTag(name, mLayout), value});
        return tags;
    }

    static std::string TextOf(const Pairs& pairs) {
        std::string text;
        for (const auto& [name, value] : pairs) {
            text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", name, value);
        }
        return text;
    }

    int IdOf(const std::string& command) const {
        for (const lab::SceneCommand& known : mScenes.Commands()) {
            if (known.name == command) return known.id;
        }
        throw std::runtime_error("the device has no command " + command);
    }

    const lab::DeviceProfile& mDevice;
    const lab::SceneFile& mScenes;
    const lab::Layout mLayout;
    std::vector<Letter> mLetters;
};

// A cluster's floor and ceiling. The higher floor is above the lower ceiling.
std::vector<Letter> RangeLetters(Letters letters) {
    const std::vector<int> clients = {tarquel::kClientPower, tarquel::kClientTemp,
                                      tarquel::kClientCamera};
    letters.LimitAll(clients, "big_max",
                     {letters.Step("big_max", 45), letters.Step("big_max", 80), 0});
    letters.LimitAll(clients, "big_min",
                     {letters.Step("big_min", 25), letters.Step("big_min", 65), 0});
    letters.Event("game_steady");
    letters.Run("game_loading");
    letters.Time();
    letters.Control(0);
    letters.Control(6);
    return letters.Take();
}

// The ceilings of two clusters.
std::vector<Letter> CeilingLetters(Letters letters, const std::string& last) {
    std::vector<int> clients = {tarquel::kClientPower, tarquel::kClientTemp};
    letters.LimitAll(clients, "little_max",
                     {letters.Step("little_max", 40), letters.Step("little_max", 75), 0});
    clients.push_back(tarquel::kClientEapa);
    letters.LimitAll(clients, last, {letters.Step(last, 40), letters.Step(last, 75), 0});
    letters.Event("power_save");
    letters.Run("game_loading");
    letters.Time();
    letters.Control(6);
    letters.Control(9);
    return letters.Take();
}

std::vector<Letter> GpuLetters(Letters letters) {
    const std::vector<int> clients = {tarquel::kClientPower, tarquel::kClientTemp,
                                      tarquel::kClientCamera};
    letters.LimitAll(clients, "gpu_max",
                     {letters.Step("gpu_max", 40), letters.Step("gpu_max", 70), 0});
    letters.LimitAll(clients, "gpu_min",
                     {letters.Step("gpu_min", 20), letters.Step("gpu_min", 55), 0});
    letters.Event("game_steady");
    letters.Run("game_loading");
    letters.Time();
    letters.Control(0);
    letters.Control(9);
    return letters.Take();
}

// Long scenes: three that name the floor, three that name the ceiling.
std::vector<Letter> SceneLetters(Letters letters) {
    letters.LimitAll({tarquel::kClientPower}, "big_max", {letters.Step("big_max", 45), 0});
    letters.LimitAll({tarquel::kClientPower}, "big_min", {letters.Step("big_min", 65), 0});
    for (const char* const scene :
         {"game_steady", "benchmark", "game_floor", "video_limit", "camera_record_limit"}) {
        letters.Event(scene);
    }
    letters.Control(0);
    letters.Control(9);
    return letters.Take();
}

// Breakthroughs that begin and end as events, and control types that keep events from both.
std::vector<Letter> EventLetters(Letters letters) {
    letters.LimitAll({tarquel::kClientPower}, "big_max", {letters.Step("big_max", 45), 0});
    letters.LimitAll({tarquel::kClientTemp}, "big_max", {letters.Step("big_max", 80), 0});
    letters.LimitAll({tarquel::kClientPower}, "big_min", {letters.Step("big_min", 65), 0});
    for (const char* const event : {"game_steady", "benchmark", "game_loading"}) {
        letters.Event(event);
    }
    letters.Time();
    for (const int type : {0, 5, 7, 10}) letters.Control(type);
    return letters.Take();
}

// Groups, and requests of several tags, among them refused ones.
std::vector<Letter> GroupLetters(Letters letters) {
    const int low = letters.Step("big_max", 45);
    const int high = letters.Step("big_max", 80);
    const int littleMax = letters.Step("little_max", 50);
    const int bigMin = letters.Step("big_min", 65);
    letters.Limit(tarquel::kClientTemp, {{"control_type", 6}, {"big_max", low}});
    letters.Limit(tarquel::kClientTemp, {{"big_max", high}, {"little_max", littleMax}});
    letters.Limit(tarquel::kClientTemp, {{"big_max", 0}, {"little_max", 0}});
    letters.Limit(tarquel::kClientTemp, {{"big_max", low}, {"little_max", -1}});
    letters.Limit(tarquel::kClientPower, {{"big_max", low}, {"little_max", -1}});
    letters.Limit(tarquel::kClientPower, {{"big_max", high}, {"big_min", bigMin}});
    letters.Limit(tarquel::kClientPower, {{"big_min", 0}, {"big_max", 0}});
    letters.Limit(tarquel::kClientCamera, {{"big_max", high}});
    letters.Group(tarquel::kClientCamera, 0,
                  {{"big_max", low}, {"gpu_max", letters.Step("gpu_max", 50)}});
    letters.Group(tarquel::kClientCamera, 0, {{"big_max", 0}, {"gpu_max", 0}});
    letters.Group(tarquel::kClientCamera, -1, {});
    letters.Group(tarquel::kClientCamera, 3000, {{"big_max", low}});
    letters.Group(tarquel::kClientPower, 3000,
                  {{"big_max", low}, {"gpu_min", letters.Step("gpu_min", 50)}});
    letters.Event("game_steady");
    letters.Run("game_loading");
    letters.Time();
    for (const int type : {0, 9, 10}) letters.Control(type);
    return letters.Take();
}

}  // namespace

std::vector<std::string> AlphabetNames() {
    return {"range", "ceilings", "gpu", "scenes", "events", "groups"};
}

std::vector<Alphabet> Alphabets(const lab::DeviceProfile& device, const lab::SceneFile& scenes) {
    const Letters letters(device, scenes);
    return {
        {"range", RangeLetters(letters)},
        {"ceilings", CeilingLetters(letters, device.clusters.back().name + "_max")},
        {"gpu", GpuLetters(letters)},
        {"scenes", SceneLetters(letters)},
        {"events", EventLetters(letters)},
        {"groups", GroupLetters(letters)},
    };
}

std::string StepsOf(const std::vector<Letter>& letters) {
    std::string steps;
    for (const Letter& letter : letters) steps += "  - " + letter.step + "\n";
    return steps;
}

}  // namespace fuzz
