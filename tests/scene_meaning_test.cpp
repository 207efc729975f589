// What the lab says that the plug-in's loader makes of a scene file, held against the loader.
#include "lab/scenes/scene_meaning.h"

#include <gtest/gtest.h>

#include <random>

#include "fuzz/scene_agreement.h"
#include "loader/vocabulary_table.h"

namespace lab {
namespace {

class SceneMeaningTest : public testing::Test {
  protected:
    std::string Disagreement(const std::string& text) {
        std::vector<SceneProblem> mistakes;
        SceneFile scenes = SceneFile::ParseAll(text, "my.xml", mistakes);
        EXPECT_TRUE(mistakes.empty()) << mistakes.front().message;
        return fuzz::FindDisagreement(scenes, mPhone, mLibrary);
    }

    Phone mPhone{LoadDeviceProfile("sm8450")};
    Library mLibrary{""};
};

TEST_F(SceneMeaningTest, IsTheLoadersOfShippedFiles) {
    for (const std::string& name : DeviceProfileNames()) {
        const std::string file = DataFolder() + "/scenes/" + name + ".xml";
        EXPECT_EQ(Disagreement(ReadSceneText(file)), "") << name;
    }
}

// Scene files of any keys and values, most of them mistaken somewhere.
class RandomScenes {
  public:
    explicit RandomScenes(unsigned seed) : mRandom(seed) {
        for (const tarquel::OpcodeName& row : tarquel::kOpcodeNames)
            mOpcodes.emplace_back(row.name);
        for (const tarquel::TagName& row : tarquel::kTagNames) mTags.emplace_back(row.name);
        for (const auto key : tarquel::kInteractiveKeys) mInteractive.emplace_back(key);
    }

    std::string Make() {
        std::string text = "<scenes>";
        if (Below(4) != 0) {
            text += "<command id='" + std::to_string(Below(2) ? 1 : 12300) + "'><qcom_cpu_info>";
            for (const char* key : {"lit_cpu_num", "big_cpu_num", "prime_cpu_num", "isolation"}) {
                if (Below(3) != 0) text += Key(key, Below(5) ? "4-6" : Value());
            }
            text += "</qcom_cpu_info></command>";
        }
        for (int id : {2, 20, 5378, 12288, 12299, 12310, 13568, 13569}) {
            if (Below(2) != 0) text += Command(id);
        }
        return text + "</scenes>";
    }

  private:
    int Below(int end) { return static_cast<int>(mRandom() % static_cast<unsigned>(end)); }
    const std::string& One(const std::vector<std::string>& of) {
        return of[static_cast<size_t>(Below(static_cast<int>(of.size())))];
    }

    static std::string Key(const std::string& name, const std::string& value) {
        return "<" + name + ">" + value + "</" + name + ">";
    }

    std::string Value() {
        return One({"0",        "1",       "-1",  "1500", "999", "1000", "65534999",
                    "65535000", "1113600", "-",   "x",    "",    "0x10", "99999999999",
                    "19087364", "7",       "4-6", "4-",   "3.5", "+2"});
    }

    std::string Fine() { return Below(12) ? One({"1500", "1113600", "1000", "0"}) : Value(); }

    std::string Element(bool isInteractive) {
        std::string text;
        std::string name = "boost";
        if (Below(12) == 0) name = One({"qcom_cpu_info", "freq_level_info3", "freq_level_info"});
        const int count = Below(25) ? Below(8) : 60;
        const std::vector<std::string> heads = {"duration_ms",       "boost_limit_level",
                                                "off_delay_time",    "off_delay_perc",
                                                "boost_count_limit", "boost_period"};
        if (Below(5) != 0) text += Key("duration_ms", Below(3) ? "500" : Below(4) ? "0" : Value());
        for (int i = 0; i < count; ++i) {
            const int kind = Below(20);
            if (kind == 0) text += Key("nonsense", "1");
            if (kind == 1 || kind == 2) text += Key(One(heads), Fine());
            if (kind == 3 || kind == 4) text += Key(One(mTags), Fine());
            if (kind > 4) text += Key(One(isInteractive ? mInteractive : mOpcodes), Fine());
        }
        return "<" + name + ">" + text + "</" + name + ">";
    }

    std::string Command(int id) {
        std::string text = "<command id='" + std::to_string(id) + "'";
        const bool isInteractive = Below(6) == 0;
        if (isInteractive) text += " governor='interactive'";
        if (Below(8) == 0) text += " skip='1' state_mask='5' task_boost='1'";
        text += ">";
        if (Below(6) == 0 && !isInteractive) {
            const std::string level =
                "freq_level_info" + One({"0", "9", "10", "-1", "3x", "x", ""});
            return text + "<" + level + ">" + Key("big_cpu0_max_freq", Value()) + "</" + level +
                   "></command>";
        }
        const int elements = isInteractive ? 1 : 1 + Below(6) / 4;
        for (int i = 0; i < elements; ++i) text += Element(isInteractive);
        return text + "</command>";
    }

    std::mt19937 mRandom;
    std::vector<std::string> mOpcodes;
    std::vector<std::string> mTags;
    std::vector<std::string> mInteractive;
};

TEST_F(SceneMeaningTest, IsTheLoadersOfRandomFiles) {
    RandomScenes scenes(20);
    for (int i = 0; i < 3000; ++i) {
        const std::string text = scenes.Make();
        ASSERT_EQ(Disagreement(text), "") << text;
    }
}

}  // namespace
}  // namespace lab
