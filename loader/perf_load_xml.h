// The loader: turns the policy server's parsed configuration into action chains.
//
//   ParserXml             every command of a configuration
//   InterRawXmlToAction   one interactive-governor element
//   DeleteAction          frees a chain
//
// One loader reads one configuration on one thread: its names of opcodes serve the first ParserXml
// only. Failures are log lines; one bad element costs its whole command and no other.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/sorted_pairs.h"
#include "loader/vocabulary.h"
#include "tarquel/action.h"
#include "tarquel/api.h"
#include "tarquel/raw_xml_data.h"

class QcomPerfLoadXml {
  public:
    QcomPerfLoadXml() = default;
    virtual ~QcomPerfLoadXml() = default;

    // Builds the chains of all commands, in ascending order of their keys; a head without a next
    // element is skipped. "qcom_cpu_info" and "freq_level_info<N>" elements fill process-wide
    // records instead.
    //   Returns  a new map from command key to the head of its chain; the caller owns both
    //   Throws   what std::stoi throws for a level element whose name carries no number
    TARQUEL_API virtual std::map<int, Action*>* ParserXml(std::map<int, RawXmlData*>& commands);

    QcomPerfLoadXml(const QcomPerfLoadXml&) = delete;
    QcomPerfLoadXml& operator=(const QcomPerfLoadXml&) = delete;

    // A new action in interactive form, which the caller owns; null for an element with a key that
    // is not interactive.
    TARQUEL_API QcomAction* InterRawXmlToAction(RawXmlData& element);

    // Destroys `head` and every action behind it; a chain that leads back into itself is left
    // alone.
    TARQUEL_API void DeleteAction(Action& head);

  private:
    // Frees the chain that it heads.
    struct ChainDeleter {
        void operator()(Action* head) const;
    };
    using Chain = std::unique_ptr<Action, ChainDeleter>;

    // Frees all chains of a map and the map.
    struct ActionsDeleter {
        void operator()(std::map<int, Action*>* actions) const;
    };

    // The opcodes, or tags, of one element with their values.
    using CodeValues = tarquel::SortedPairs<tarquel::Vocabulary::kMaxCodes>;

    Chain IterActions(RawXmlData& first);
    std::unique_ptr<QcomAction> RawXmlToAction(RawXmlData& element);
    // Both are false, with a log line, for an element that makes no action.
    bool ObtainXmlValue(RawXmlData& element, CodeValues& pairs, int& duration,
                        int& boostLimitLevel);
    bool ObtainInterXmlValue(RawXmlData& element, std::map<std::string, std::string>& pairs);
    void StoreHeadValue(RawXmlData& element, std::string_view key, int number,
                        int& boostLimitLevel);

    void ParserCpuInfo(const std::string& key, const std::string& value);
    void ParseFreqLevelInfo(const std::string& key, const std::string& value, int level);

    tarquel::Vocabulary mVocabulary;
    int hasPrimeCluster = 0;
};

namespace tarquel {

// True for a non-empty text of decimal digits, of which the first character may be '-' instead;
// `number` is then its value as atoi gives it.
bool IsNumber(const std::string& text, int& number);

// The eight nibbles of `value`, most significant first.
std::array<int, 8> ParseBoostFreqLevelList(int value);

}  // namespace tarquel
