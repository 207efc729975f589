#include "lab/scenes/scene_file.h"

#include <gtest/gtest.h>

#include "lab/scenes/scene_problems.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {
namespace {

struct Mistake {
    const char* name;
    const char* xml;
    const char* what;  // begins with the place
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.name;
}

class SceneFileMistake : public testing::TestWithParam<Mistake> {};

TEST_P(SceneFileMistake, IsNamedWhereItStands) {
    try {
        SceneFile::Parse(GetParam().xml, "my.xml");
        FAIL() << "accepted";
    } catch (const InputError& error) {
        const std::string what = error.what();
        EXPECT_EQ(what.substr(0, std::string(GetParam().what).size()), GetParam().what) << what;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, SceneFileMistake,
    testing::Values(
        Mistake{"EndTag", "<scenes>\n <command id='1'>\n</scenes>", "my.xml:3:3: this is no XML"},
        Mistake{"Empty", "", "my.xml:1:1: this is no XML"},
        Mistake{"Root", "\n<scene/>", "my.xml:2:1: the root is <scene>"},
        Mistake{"RootAttribute", "<scenes a='1'/>", "my.xml:1:9: <scenes> has no attribute 'a'"},
        Mistake{"NoCommand", "<scenes>\n  <boost/></scenes>", "my.xml:2:3: '<boost>' stands"},
        Mistake{"NoId", "<scenes>\n <command name='a'><b/></command></scenes>",
                "my.xml:2:2: this <command> has no id"},
        Mistake{"IdNotANumber", "<scenes><command id='1x'><b/></command></scenes>",
                "my.xml:1:18: id=\"1x\" must be a number"},
        Mistake{"IdTooLarge", "<scenes><command id='2147483648'><b/></command></scenes>",
                "my.xml:1:18: id="},
        Mistake{"IdTwice",
                "<scenes><command id='16'><b/></command>\n<command id='0x10'><b/></command>"
                "</scenes>",
                "my.xml:2:10: id 16 is taken by the command in line 1"},
        Mistake{"NameTwice",
                "<scenes><command id='1' name='a'><b/></command>\n"
                "<command id='2' name='a'><b/></command></scenes>",
                "my.xml:2:17: the name 'a' is taken"},
        Mistake{"NameIsANumber", "<scenes><command id='1' name='7'><b/></command></scenes>",
                "my.xml:1:25: the name '7' is a number"},
        Mistake{"Attribute", "<scenes><command id='1' skp='1'><b/></command></scenes>",
                "my.xml:1:25: <command> has no attribute 'skp' (did you mean 'skip'?)"},
        Mistake{"ElementAttribute", "<scenes><command id='1'><b id='2'/></command></scenes>",
                "my.xml:1:28: <b> has no attribute 'id'"},
        Mistake{"Flag", "<scenes><command id='1' skip='2'><b/></command></scenes>",
                "my.xml:1:25: skip=\"2\" must be a number from 0 to 1"},
        Mistake{"Governor", "<scenes><command id='1' governor='x'><b/></command></scenes>",
                "my.xml:1:25: governor=\"x\""},
        Mistake{"TwoInteractive",
                "<scenes><command id='1' governor='interactive'><b/>\n<c/></command></scenes>",
                "my.xml:2:1: an interactive-governor command has one element"},
        Mistake{"NoElement", "<scenes><command id='1'/></scenes>",
                "my.xml:1:9: command 1 has no element"},
        Mistake{"Text", "<scenes><command id='1'><b>\n x </b></command></scenes>",
                "my.xml:2:2: 'x' stands where only keys may"},
        Mistake{"ElementInKey", "<scenes><command id='1'><b><k>1<x/></k></b></command></scenes>",
                "my.xml:1:32: the key <k> holds an element"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SceneFile, BecomesTheRecordsOfTheLoaderInDocumentOrder) {
    SceneFile scenes = SceneFile::Parse(
        "<scenes>"
        "<command id='0x20' name='late' header0='7' header2='-3' state_mask='4' task_boost='1'>"
        "  <a><z>1</z><!-- a remark --><b> 22 </b></a>"
        "  <a state_mask='2' skip='1'/>"
        "</command>"
        "<command id='5'><only><empty/></only></command>"
        "<command id='6' governor='interactive'><g><priority>1</priority></g></command>"
        "</scenes>",
        "my.xml");

    const std::map<int, RawXmlData*> heads = scenes.Heads();

    ASSERT_EQ(heads.size(), 2u);  // the interactive one is no business of the parser
    const RawXmlData& head = *heads.at(32);
    EXPECT_EQ(head.headValue0, 7);
    EXPECT_EQ(head.headValue1, -1);
    EXPECT_EQ(head.headValue2, -3);
    ASSERT_TRUE(head.next && head.next->next);
    const RawXmlData& first = *head.next;
    EXPECT_EQ(first.cmdId, 32);
    EXPECT_EQ(first.name, "a");
    EXPECT_EQ(first.keys, (std::vector<std::string>{"z", "b"}));
    EXPECT_EQ(first.values, (std::vector<std::string>{"1", "22"}));
    EXPECT_EQ(first.stateMask, 4);
    EXPECT_EQ(first.taskBoost, 1);
    EXPECT_EQ(first.next->stateMask, 2);
    EXPECT_EQ(first.next->skip, 1);
    EXPECT_EQ(first.next->next, nullptr);
    EXPECT_EQ(heads.at(5)->next->values, (std::vector<std::string>{""}));
    EXPECT_EQ(scenes.InteractiveRecord(*scenes.Find(6)).keys,
              (std::vector<std::string>{"priority"}));
}

TEST(SceneFile, PlacesTheRefusalsOfThePlugIn) {
    const SceneFile scenes = SceneFile::Parse(
        "<scenes>\n"
        "<command id='1'><qcom_cpu_info><big_cpu_num>4-6</big_cpu_num>\n"
        "  <lit_cpu_num>0</lit_cpu_num></qcom_cpu_info></command>\n"
        "<command id='10'><b><duration_ms>1</duration_ms>\n"
        "  <nonsense>1</nonsense></b></command>\n"
        "<command id='11'><b><hmp>1</hmp>\n"
        "  <sched_boost>x</sched_boost></b></command>\n"
        "<command id='12'><b><top_app>3</top_app>\n"
        "  <schedtune_boost>4</schedtune_boost></b></command>\n"
        "<command id='13'><b><sched_boost>1</sched_boost>\n"
        "  <big_cpu0_min_freq>999</big_cpu0_min_freq></b></command>\n"
        "</scenes>",
        "my.xml");

    const std::vector<SceneProblem> problems = FindSceneProblems(scenes);

    ASSERT_EQ(problems.size(), 5u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(problems[static_cast<size_t>(i)].place.line, 3 + 2 * i);
    }
    EXPECT_EQ(ProblemText(scenes, problems[1]),
              "my.xml:5:3: the plug-in says: tarquel: xml is invalid, cmdId is 10 element is "
              "nonsense");
    // The frequency is out of range, which the plug-in refuses without a word.
    EXPECT_NE(problems[4].message.find("999"), std::string::npos);
}

TEST(SceneFile, ShippedFilesDescribeTheirDevices) {
    for (const char* name : {"sm8450", "sm4450"}) {
        SCOPED_TRACE(name);
        const SceneFile scenes =
            SceneFile::Load(DataFolder() + "/scenes/" + std::string(name) + ".xml");
        EXPECT_GE(scenes.Commands().size(), 60u);
        EXPECT_TRUE(FindClusterProblems(scenes, LoadDeviceProfile(name)).empty());
        const char* other = std::string(name) == "sm8450" ? "sm4450" : "sm8450";
        EXPECT_FALSE(FindClusterProblems(scenes, LoadDeviceProfile(other)).empty());
    }
}

}  // namespace
}  // namespace lab
