#include "loader/perf_load_xml.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "base/action_list.h"
#include "base/ids.h"
#include "base/log.h"
#include "base/null_argument.h"
#include "loader/boost_info.h"
#include "loader/configuration.h"
#include "loader/element_keys.h"
#include "loader/vocabulary_table.h"
#include "tarquel/plat.h"
#include "tarquel/securec.h"

using tarquel::IsNumber;
namespace keys = tarquel::keys;

namespace {

constexpr size_t kMaxPairs = 35;
constexpr size_t kPairBufferInts = 72;

// What a frequency in kHz may be; the HAL takes it in MHz.
constexpr int kMinKhz = 1000;
constexpr int kMaxKhz = 65534999;
constexpr int kKhzPerMhz = 1000;

// Keys and values that stand beside each other. What has nothing to pair with is not read, with a
// log line.
size_t PairCount(const RawXmlData& element) {
    if (element.keys.size() != element.values.size()) {
        TARQUEL_LOGE("tarquel: xml is invalid, cmdId is %d element is %s", element.cmdId,
                     element.name.c_str());
    }
    return std::min(element.keys.size(), element.values.size());
}

bool DescribesDevice(const std::map<int, RawXmlData*>& commands) {
    return std::any_of(commands.begin(), commands.end(), [](const auto& command) {
        const RawXmlData* const head = command.second;
        return head != nullptr && head->next != nullptr && head->next->name == keys::kCpuInfo;
    });
}

}  // namespace

extern "C" QcomPerfLoadXml* CreateTarQuelLoadXml() {
    return new QcomPerfLoadXml;
}

void QcomPerfLoadXml::ChainDeleter::operator()(Action* head) const {
    while (head != nullptr) {
        Action* next = head->next;
        delete head;
        head = next;
    }
}

void QcomPerfLoadXml::ActionsDeleter::operator()(std::map<int, Action*>* actions) const {
    for (const auto& [command, head] : *actions) ChainDeleter()(head);
    delete actions;
}

void QcomPerfLoadXml::DeleteAction(Action& head) {
    if (tarquel::IsNullArgument(&head, "DeleteAction")) return;
    if (!tarquel::IsEndlessChain(head)) ChainDeleter()(&head);
}

std::map<int, Action*>* QcomPerfLoadXml::ParserXml(std::map<int, RawXmlData*>& commands) {
    std::unique_ptr<std::map<int, Action*>, ActionsDeleter> actions(new std::map<int, Action*>);
    if (tarquel::IsNullArgument(&commands, "ParserXml")) return actions.release();
    if (DescribesDevice(commands)) tarquel::BeginConfiguration();
    for (const auto& [command, head] : commands) {
        if (head == nullptr) {
            TARQUEL_LOGE("tarquel: xml is invalid, cmdId is %d element is NULL", command);
            continue;
        }
        if (head->next == nullptr) continue;
        RawXmlData& first = *head->next;
        if (first.name == keys::kCpuInfo) {
            const size_t count = PairCount(first);
            for (size_t i = 0; i < count; ++i) {
                ParserCpuInfo(first.keys[i], first.values[i]);
            }
            mVocabulary.TarquelOpcodeMapInit(hasPrimeCluster != 0);
        } else if (first.name.starts_with(keys::kFreqLevelInfo)) {
            const size_t count = PairCount(first);
            for (size_t i = 0; i < count; ++i) {
                const int level = std::stoi(first.name.substr(keys::kFreqLevelInfo.size()));
                ParseFreqLevelInfo(first.keys[i], first.values[i], level);
            }
        } else if (Chain chain = IterActions(first)) {
            chain->headValue0 = head->headValue0;
            chain->headValue1 = head->headValue1;
            chain->headValue2 = head->headValue2;
            // Commands come in ascending order: each goes to the end.
            actions->emplace_hint(actions->end(), command, chain.get());
            static_cast<void>(chain.release());
        }
    }
    mVocabulary.Clear();
    return actions.release();
}

QcomPerfLoadXml::Chain QcomPerfLoadXml::IterActions(RawXmlData& first) {
    const int cmdId = first.cmdId;
    if (tarquel::IsEndless(first)) {
        TARQUEL_LOGE("tarquel: xml is invalid, cmdId is %d element is %s", cmdId,
                     first.name.c_str());
        return nullptr;
    }
    Chain head;
    Action* tail = nullptr;
    int count = 0;
    bool hasLongTerm = false;
    for (RawXmlData* element = &first; element != nullptr; element = element->next) {
        std::unique_ptr<QcomAction> made = RawXmlToAction(*element);
        if (made == nullptr) return nullptr;
        Action* action = made.get();
        action->skip = element->skip;
        action->taskBoost = element->taskBoost;
        action->stateMask = element->stateMask;
        action->offDelayTime = element->offDelayTime;
        action->offDelayPerc = element->offDelayPerc;
        action->boostLevels = element->boostLevels;
        if (tail == nullptr) {
            head.reset(made.release());
        } else {
            tail->next = made.release();
        }
        tail = action;
        if (element->offDelayTime > 0 || element->offDelayPerc >= 1) head->hasOffDelay = true;
        if (action->duration == 0) hasLongTerm = true;
        ++count;
        if (tarquel::IsAnnounced(cmdId)) {
            TARQUEL_LOGI("tarquel: cmdId %d is between 4225 ~ 4352\n", cmdId);
        }
    }
    if (count > 1 && hasLongTerm) {
        TARQUEL_LOGE("tarquel don't support multi-action in long term scene, cmdId is %d", cmdId);
        return nullptr;
    }
    return head;
}

std::unique_ptr<QcomAction> QcomPerfLoadXml::RawXmlToAction(RawXmlData& element) {
    std::array<int, kPairBufferInts> buffer;
    if (memset_s(buffer.data(), sizeof(buffer), 0, sizeof(buffer)) != 0) return nullptr;
    int duration = 0;
    int boostLimitLevel = -1;
    CodeValues pairs;
    if (!ObtainXmlValue(element, pairs, duration, boostLimitLevel)) return nullptr;

    size_t used = 0;
    for (auto [opcode, value] : pairs) {
        if (used == 2 * kMaxPairs) {
            TARQUEL_LOGE("tarquel: xml is invalid, too many elements");
            break;
        }
        if (tarquel::IsFrequencyOpcode(opcode)) {
            if (value < kMinKhz || value > kMaxKhz) return nullptr;
            value /= kKhzPerMhz;
        }
        buffer[used++] = opcode;
        buffer[used++] = value;
    }
    return std::make_unique<QcomAction>(element.cmdId, element.name, duration, boostLimitLevel,
                                        static_cast<int>(used / 2), buffer.data());
}

bool QcomPerfLoadXml::ObtainXmlValue(RawXmlData& element, CodeValues& pairs, int& duration,
                                     int& boostLimitLevel) {
    const int cmdId = element.cmdId;
    bool namesTags = false;
    const size_t count = PairCount(element);
    for (size_t i = 0; i < count; ++i) {
        const std::string& key = element.keys[i];
        const std::string& value = element.values[i];
        const int32_t* code = namesTags ? mVocabulary.FindTag(key) : mVocabulary.FindOpcode(key);
        int headNumber = 0;
        int* number = &headNumber;
        if (code != nullptr) {
            const auto [place, isNew] = pairs.Enter(*code);
            if (!isNew) {
                TARQUEL_LOGE("tarquel: multi-duration exist! we choose the first value(%d, %d)",
                             *place, std::atoi(value.c_str()));
                continue;
            }
            number = place;
        } else if (!keys::IsHeadKey(key)) {
            TARQUEL_LOGE("tarquel: xml is invalid, cmdId is %d element is %s", cmdId, key.c_str());
            return false;
        }
        if (!IsNumber(value, *number)) {
            TARQUEL_LOGE("tarquel: xml element is invalid, cmdId is %d element is %s", cmdId,
                         key.c_str());
            return false;
        }
        if (code != nullptr) continue;
        if (key == keys::kDuration) {
            duration = headNumber;
            // Counts for the keys behind it: long-term scenes name tags, all others opcodes.
            namesTags = headNumber == 0 && tarquel::IsLongTermScene(cmdId);
        } else {
            StoreHeadValue(element, key, headNumber, boostLimitLevel);
        }
    }
    return true;
}

QcomAction* QcomPerfLoadXml::InterRawXmlToAction(RawXmlData& element) {
    if (tarquel::IsNullArgument(&element, "InterRawXmlToAction")) return nullptr;
    std::map<std::string, std::string> pairs;
    if (!ObtainInterXmlValue(element, pairs)) return nullptr;
    int duration = -1;
    int boostLimitLevel = -1;
    int count = 0;
    std::vector<std::string> strings;
    for (const auto& [key, value] : pairs) {
        if (key == keys::kDuration) {
            duration = std::atoi(value.c_str());
        } else if (key == keys::kBoostLimitLevel) {
            boostLimitLevel = std::atoi(value.c_str());
        } else {
            strings.push_back(key);
            strings.push_back(value);
            ++count;
        }
    }
    return new QcomAction(element.cmdId, element.name, duration, boostLimitLevel, count,
                          std::move(strings));
}

bool QcomPerfLoadXml::ObtainInterXmlValue(RawXmlData& element,
                                          std::map<std::string, std::string>& pairs) {
    const size_t count = PairCount(element);
    for (size_t i = 0; i < count; ++i) {
        const std::string& key = element.keys[i];
        if (!tarquel::IsInteractiveKey(key)) {
            TARQUEL_LOGE("inter xml is invalid, cmdId is %d element is %s", element.cmdId,
                         key.c_str());
            return false;
        }
        if (!pairs.emplace(key, element.values[i]).second) {
            TARQUEL_LOGI("cmdId(%d) multi-tag(%s) exist!", element.cmdId, key.c_str());
        }
    }
    return true;
}
