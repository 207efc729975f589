// tarquel-lab check as a user or a script calls it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "lab/phone/device_profile.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr char kStepless[] =
    "<scenes><command id='1'><qcom_cpu_info><lit_cpu_num>0-3</lit_cpu_num>"
    "<big_cpu_num>4-6</big_cpu_num><prime_cpu_num>7-7</prime_cpu_num></qcom_cpu_info></command>\n"
    "<command id='16' name='b\xC3\xB6st'><b><duration_ms>1</duration_ms>\n"
    "  <big_cpu0_min_freq>1100000</big_cpu0_min_freq></b></command></scenes>\n";

class CommandCheck : public testing::Test {
  protected:
    struct Result {
        int exitCode = -1;
        std::string output;  // and what went to stderr
    };

    CommandCheck() {
        std::string folder = (fs::temp_directory_path() / "tarquel-check-XXXXXX").string();
        mFolder = mkdtemp(folder.data());
    }
    ~CommandCheck() override { fs::remove_all(mFolder); }

    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(mFolder / name, std::ios::binary) << text;
        return (mFolder / name).string();
    }

    static Result Check(const std::string& arguments) {
        const std::string command = TARQUEL_LAB_PROGRAM " check " + arguments + " 2>&1";
        Result result;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        while (const size_t length = std::fread(buffer, 1, sizeof(buffer), pipe)) {
            result.output.append(buffer, length);
        }
        const int status = pclose(pipe);
        if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
        return result;
    }

    fs::path mFolder;
};

TEST_F(CommandCheck, ReturnsOneForErrorsAndForWarningsWhenStrict) {
    const std::string fine = DataFolder() + "/scenes/sm4450.xml";
    const std::string warned = Write("warned.xml", kStepless);
    const std::string broken = Write("broken.xml", "<scenes><command id='1'>");
    EXPECT_EQ(Check("--strict " + fine).exitCode, 0);
    EXPECT_EQ(Check(warned).exitCode, 0);
    EXPECT_EQ(Check("--strict " + warned).exitCode, 1);
    const Result several = Check(fine + " " + broken + " " + warned);
    EXPECT_EQ(several.exitCode, 1);
    EXPECT_NE(several.output.find("warned.xml:3:3: warning: big_cpu0_min_freq = 1100000"),
              std::string::npos);
    EXPECT_NE(several.output.find("3 files: 1 error, 1 warning, 1 note"), std::string::npos)
        << several.output;
}

TEST_F(CommandCheck, ReturnsTwoForWhatCannotBeCheckedAndChecksTheRest) {
    const std::string warned = Write("warned.xml", kStepless);
    const Result several = Check(mFolder.string() + " " + warned + " nowhere.xml");
    EXPECT_EQ(several.exitCode, 2);
    for (const char* part :
         {"3 files: 0 errors, 2 warnings", "nowhere.xml: this scene file cannot be read: No such",
          "warned.xml: 0 errors, 1 warning"}) {
        EXPECT_NE(several.output.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(Check("").exitCode, 2);
    EXPECT_EQ(Check("--device nope " + warned).exitCode, 2);
}

TEST_F(CommandCheck, NamesTheFaultOfADevice) {
    std::ifstream shipped(DataFolder() + "/devices/sm8450.yaml");
    const std::string profile((std::istreambuf_iterator<char>(shipped)), {});
    const auto with = [&profile](const std::string& from, const std::string& to) {
        std::string text = profile;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string scenes = Write("warned.xml", kStepless);
    const std::string own = Write("own.yaml", with("name: sm8450", "name: my_phone"));
    EXPECT_NE(Check("--device " + own + " " + scenes).output.find("no step of my_phone's big"),
              std::string::npos);
    const std::string faulty[][2] = {
        {with("307200, 403200", "403200, 307200"), ":15:19: khz must be in ascending order"},
        {with("cpus: 4-6", "cpus: 5-6"), ":19:11: this cluster must begin with CPU 4"},
        {with("name: little", "nam: little"), ":13:5: a cluster has no field 'nam'"},
        {"", ":1:1: a device profile must be a map"},
    };
    for (const auto& [text, message] : faulty) {
        const std::string device = Write("faulty.yaml", text);
        const Result result = Check("--device " + device + " " + scenes);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_NE(result.output.find(device + message), std::string::npos) << result.output;
    }
}

TEST_F(CommandCheck, GivesAScriptTheSameFindings) {
    const Result result = Check("--json " + Write("warned.xml", kStepless));
    EXPECT_EQ(result.exitCode, 0);
    const nlohmann::json json = nlohmann::json::parse(result.output);
    EXPECT_EQ(json["warnings"], 1);
    const nlohmann::json& file = json["files"].at(0);
    EXPECT_EQ(file["device"], "sm8450");
    ASSERT_EQ(file["findings"].size(), 1u);
    const nlohmann::json& finding = file["findings"][0];
    EXPECT_EQ(finding["rule"], "frequency-step");
    EXPECT_EQ(finding["severity"], "warning");
    EXPECT_EQ(finding["line"], 3);
    EXPECT_EQ(finding["column"], 3);
    EXPECT_EQ(finding["where"], "command b\xC3\xB6st (16), <b>");
}

}  // namespace
}  // namespace lab
