// Reads the steps of a scenario. Every mistake is an InputError that names its place, the wrong
// value and what is allowed.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lab/names/text.h"
#include "lab/server/scenario.h"
#include "lab/yaml/yaml_tree.h"

namespace lab {

// The number of a client given by name or number.
int ReadClient(const YamlNode& node);

// A map from property name to value.
std::map<std::string, std::string> ReadProperties(const YamlNode& node);

class StepReader {
  public:
    explicit StepReader(const SceneFile& scenes)
        : mScenes(scenes), mLayout(scenes.ClusterLayout()) {}

    std::vector<Step> Read(const YamlNode& list) { return ReadList(list, false); }

  private:
    // A kind of step: the field that makes it, the fields that may stand beside it, its reader.
    struct Kind {
        const char* field;
        std::vector<std::string> beside;
        Request (StepReader::*read)(const YamlNode& step, const YamlNode& value, Step& made);
    };
    static const std::vector<Kind>& Kinds();

    std::vector<Step> ReadList(const YamlNode& list, bool repeated);
    Step ReadStep(const YamlNode& node, bool repeated);
    void ReadDevice(const YamlNode& node, Step& made);
    void ReadTime(const YamlNode& node, bool repeated, Step& made);
    void PassTime(const YamlNode& node, const Step& made);

    Request ReadDo(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadOn(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadOff(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadInteractive(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadLimit(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadGroup(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadControl(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadGet(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadStatus(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadDump(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadState(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadDebug(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadBoostCount(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadCanBoost(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadCeilings(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadSchedLevel(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadAffinity(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadChipType(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadOnDemand(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadFaultStep(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadHal(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadNode(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadCpus(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadProperty(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadWait(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadExpect(const YamlNode& step, const YamlNode& value, Step& made);
    Request ReadRepeat(const YamlNode& step, const YamlNode& value, Step& made);

    ExpectedLock ReadExpectedLock(const YamlNode& node, bool isHeld) const;
    int ReadResource(const YamlNode& node) const;

    static int AsInt32(const YamlNode& node, const std::string& what, int64_t low = INT32_MIN,
                       int64_t high = INT32_MAX);
    static const YamlNode& AsMap(const YamlNode& node, const std::string& what,
                                 const std::vector<std::string>& fields);
    const SceneCommand& ReadCommand(const YamlNode& node, bool interactive = false) const;
    std::vector<int> ReadInts(const YamlNode& node, const std::string& what) const;
    int ReadTag(const YamlNode& node) const;
    std::vector<TagValue> ReadTagValues(const YamlNode& node) const;
    std::string TagsText(const std::vector<TagValue>& tags, size_t from = 0) const;

    const SceneFile& mScenes;
    Layout mLayout;
    int64_t mNowMs = 0;  // when the step being read happens, counted within a repeat's first round
};

}  // namespace lab
