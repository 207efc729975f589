// The profile as a file.
#include <fmt/format.h>

#include "lab/names/text.h"
#include "lab/profile/profile_maker.h"
#include "lab/scenes/scene_problems.h"

namespace lab {
namespace {

constexpr size_t kWidth = 100;

// "khz: [300000, 403200, ...]" in lines of kWidth at most, the later ones under the first number.
std::string List(const std::string& indent, const std::string& key,
                 const std::vector<int64_t>& numbers) {
    std::string text = indent + key + ": [";
    const std::string under = "\n" + std::string(text.size(), ' ');
    size_t column = text.size();
    for (size_t i = 0; i < numbers.size(); ++i) {
        const std::string word = std::to_string(numbers[i]) + (i + 1 < numbers.size() ? "," : "]");
        if (i > 0 && column + 1 + word.size() > kWidth) {
            text += under;
            column = under.size() - 1;
        } else if (i > 0) {
            text += " ";
            ++column;
        }
        text += word;
        column += word.size();
    }
    return text + "\n";
}

// In double quotes, as YAML and JSON have it; what cannot be printed is replaced.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\') quoted += '\\';
        quoted += letter < ' ' || letter > '~' ? '?' : letter;
    }
    return quoted + "\"";
}

std::string Comment(const std::string& indent, const std::string& text) {
    std::string comment;
    std::string line = indent + "#";
    size_t from = 0;
    while (from < text.size()) {
        const size_t end = std::min(text.find(' ', from), text.size());
        if (line.size() + 1 + end - from > kWidth && line.size() > indent.size() + 1) {
            comment += line + "\n";
            line = indent + "#";
        }
        line += " " + text.substr(from, end - from);
        from = end + 1;
    }
    return comment + line + "\n";
}

class Writer {
  public:
    Writer(const MadeProfile& made, const PhoneDump& dump) : mMade(made), mDump(dump) {}

    std::string Write() {
        const DeviceProfile& profile = mMade.profile;
        AddHead();
        mText += "name: " + Quoted(profile.name) + "\n";
        mText += "description: " + Quoted(Description()) + "\n\nclusters:\n";
        for (const CpuCluster& cluster : profile.clusters) AddCluster(cluster);
        mText += "\ngpu:\n";
        AddGuess("  ", "gpu mhz");
        mText += List("  ", "mhz", profile.gpuMhz);
        AddGuess("  ", "gpu initial_mhz");
        mText += fmt::format("  initial_mhz: {}\n", profile.gpuInitialMhz);
        if (!profile.buses.empty()) mText += "\nbuses:\n";
        for (const BusMonitor& bus : profile.buses) {
            AddGuess("  ", bus.folder + " khz");
            mText += fmt::format("  - folder: {}\n    kind: {}\n", Quoted(bus.folder),
                                 bus.isBandwidthMonitor ? "bwmon" : "memlat");
            mText += List("    ", "khz", bus.khz);
        }
        if (!profile.properties.empty()) mText += "\nproperties:\n";
        for (const auto& [name, value] : profile.properties) {
            mText += "  " + name + ": " + Quoted(value) + "\n";
        }
        return std::move(mText);
    }

  private:
    void AddHead() {
        std::string origin = "Made by tarquel-lab profile";
        const auto model = mDump.properties.find("ro.product.model");
        if (model != mDump.properties.end()) origin += " of a " + Printable(model->second);
        if (!mDump.kernel.empty()) origin += ", kernel " + Printable(mDump.kernel);
        mText += Comment("", origin +
                                 ". Ranges of buses and rtg_boost_khz are what the phone had "
                                 "when it was read.");
        for (const std::string& note : ClusterNotes(mMade.profile)) {
            mText += "#\n" + Comment("", note + ".");
        }
        mText += "\n";
    }

    static std::string Printable(const std::string& text) {
        const std::string quoted = Quoted(Shortened(text));
        return quoted.substr(1, quoted.size() - 2);
    }

    std::string Description() const {
        std::vector<std::string> parts;
        for (const CpuCluster& cluster : mMade.profile.clusters) {
            parts.push_back(
                fmt::format("{} {}", cluster.lastCpu - cluster.firstCpu + 1, cluster.name));
        }
        return Counted(parts.size(), "cluster") + " (" + Join(parts) + ")";
    }

    void AddGuess(const std::string& indent, const std::string& field) {
        const auto guess = mMade.guesses.find(field);
        if (guess != mMade.guesses.end()) mText += Comment(indent, "a guess: " + guess->second);
    }

    void AddCluster(const CpuCluster& cluster) {
        for (const char* field : {" name", " cpus", " khz"}) AddGuess("  ", cluster.name + field);
        mText += fmt::format("  - name: {}\n", cluster.name);
        mText += cluster.firstCpu == cluster.lastCpu
                     ? fmt::format("    cpus: \"{}\"\n", cluster.firstCpu)
                     : fmt::format("    cpus: {}-{}\n", cluster.firstCpu, cluster.lastCpu);
        mText += List("    ", "khz", cluster.khz);
        mText += fmt::format("    rtg_boost_khz: {}\n", cluster.rtgBoostKhz);
    }

    const MadeProfile& mMade;
    const PhoneDump& mDump;
    std::string mText;
};

}  // namespace

std::string ProfileYaml(const MadeProfile& made, const PhoneDump& dump) {
    return Writer(made, dump).Write();
}

}  // namespace lab
