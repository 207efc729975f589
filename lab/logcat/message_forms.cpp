#include "lab/logcat/message_forms.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <set>
#include <string>

namespace lab {
namespace {

// Where two begin alike, the one with more text comes first. True in the third place: SetDebug's
// switch alone writes it.
// clang-format off
const std::vector<MessageForm> kForms = {
    // Actions
    {Message::kActionDone,     "tarquel: DoAction ret = %d, cmdId = %d, payloadNum = %d, payload = %d", true},
    {Message::kActionDoneBare, "tarquel: DoAction ret = %d, cmdId = %d, payloadNum = %d", true},
    {Message::kBoostsDisabled, "tarquel: PerfServiceAcq disable boost---low temperature!"},
    {Message::kCommonLock,     "tarquel: PerfLockAcq cmdId = %d, mCommonHandle = %d"},
    {Message::kLockRefused,    "tarquel: PerfLockAcq failed! cmdId = %d, oldHandle = %d, updateHandle = %d, duration = %d"},
    {Message::kLockTaken,      "tarquel: PerfLockAcq cmdId = %d, oldHandle = %d, updateHandle = %d, tagLen = %d, duration = %d"},
    {Message::kOnDemand,       "tarquel: cmdId = %d, onDemandDuration = %d"},
    {Message::kSceneZero,      "tarquel: tag %d value is 0, cmdId is %d"},
    {Message::kScenePair,      "tarquel: DoOnOffAction tagLen = %d, setTagLen = %d, setTags = %d, setConfigs = %d"},
    {Message::kSceneRefused,   "tarquel: invalid special scene parameters, cmdId is %d"},
    {Message::kSceneRefused,   "tarquel: invalid parameters, cmdId is %d"},
    {Message::kTaskId,         "tarquel: DoAddTaskBoostInfo cmdId = %d taskId = %d"},
    {Message::kNoTaskId,       "tarquel: TarquelEvent get taskId failed"},
    {Message::kEventReleased,  "tarquel: DoEventReleaseHandle --- CmdId = %d-%d", true},
    {Message::kEventFresh,     "tarquel: GetEventHandle init handleKey = %d-%d, handle = 0."},
    {Message::kEventHeld,      "tarquel: GetEventHandle handleKey = %d-%d, handle = %d, regularId = %d"},
    {Message::kEventCached,    "tarquel: DoEventCacheHandle +++ cmdId = %d-%d, perfHandle = %d.", true},
    {Message::kTimerRan,       "tarquel TimerCallback End Temperature Control Breakthrough", true},
    {Message::kTimerStopped,   "tarquel SetTimer End Temperature Control Breakthrough", true},
    {Message::kOther,          "tarquel: PerfServiceAcq failed, action is NULL!"},
    {Message::kOther,          "tarquel: action chain is endless, cmdId is %d"},
    {Message::kOther,          "tarquel: DoOnOffAction need check risk of dead loop..."},
    {Message::kOther,          "tarquel: DoOnOffAction dead loop, cmdId is %d"},
    {Message::kOther,          "tarquel: get targetPid: snprintf_s error"},
    // Limits
    {Message::kControlType,    "tarquel: SetControlType config %d, mEnableBoost %d"},
    {Message::kSetConfig,      "tarquel: SetConfig tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, mEnable = %d"},
    {Message::kTagLock,        "tarquel: PerfServiceSetConfig tag = %d, PerfLockAcq handle = %d, val[0] = 0x%08x, val[1] = %d"},
    {Message::kTagRelease,     "tarquel: DoHandleMapRelease tag = %d, PerfLockRel handle= %d", true},
    {Message::kNoTagLock,      "tarquel: default cpu_max_freq is 0xffffffff, no need to modify!"},
    {Message::kTagNotHeld,     "tarquel: tag %d is not registerd! init handleMap[%d] = %d"},
    {Message::kTagNotGot,      "tarquel: tag %d last acquire failed! no need release"},
    {Message::kConfigZero,     "tarquel: tag = %d, %s"},
    {Message::kGroupPair,      "tarquel: DoGroupPerfSetConfig duration = %d, tag = %3d, opcodes = 0x%8X, configVal = %d", true},
    {Message::kGroupTaken,     "tarquel: DoGroupPerfSetConfig clientId = %d, duration = %d, newTagLen = %d, perfHandle = %d"},
    {Message::kGroupRefused,   "tarquel: DoGroupPerfSetConfig failed! clientId = %d, duration = %d, perfHandle = %d"},
    {Message::kClientTag,      "tarquel: TagConfigs clientId = %d, Tag = %d, min = %d, Temp = %d, Power = %d, Eapa = %d, Camera = %d"},
    {Message::kClientOthers,   "tarquel: GetValidMinValue config1 = %d, config2 = %d, config3 = %d", true},
    {Message::kClientPair,     "tarquel: tags[%d] = %d, newConfigs[%d] = %d, Configs[%d] = %d", true},
    {Message::kBadValue,       "tarquel: invalid config value(%d)"},
    {Message::kBadRequest,     "tarquel: DoPerfSetConfig invalid request, clientId is %d, tagLen is %d"},
    {Message::kBadTag,         "tarquel: PerfServiceSetConfig doesn't support this tag[%d]"},
    {Message::kLimitEffect,    "tarquel: reset setMinCpuFreq = %d."},
    {Message::kLimitEffect,    "tarquel: setMinCpuFreq > cpuFreq.mMaxFreq."},
    {Message::kLimitEffect,    "tarquel: reset setMaxCpuFreq = %d."},
    {Message::kLimitEffect,    "tarquel: setMaxCpuFreq < cpuFreq.mMinFreq."},
    {Message::kLimitEffect,    "tarquel: tagMax = %d, setMaxCpuFreq = %d."},
    {Message::kLimitEffect,    "tarquel: tag = %d not in mCpuNodeMap"},
    {Message::kLimitEffect,    "tarquel: isolation switch is off."},
    {Message::kLimitEffect,    "tarquel: DoGroup tagLen = %d, tag = %d, val = %d, mPerf = %d, mThermal = %d, mEnable = %d"},
    {Message::kGroupRelease,   "tarquel: DoGroupPerfRel release %d for last duration = 0"},
    {Message::kLimitEffect,    "tarquel: DoGroupPerfSetConfig tags not exist."},
    {Message::kLimitEffect,    "tarquel: invalid tag %d, cmdId is %d"},
    {Message::kOther,          "tarQuel: %s snprintf_s trace_arg_buf error"},
    {Message::kOther,          "tarQuel: %s snprintf_s trace_buf error"},
    {Message::kOther,          "tarQuel: PerfServiceSetConfig snprintf_s trace_buf error"},
    // Nodes and queries
    {Message::kReadNode,       "tarquel: read node ret = %d, node = %s, config = %d"},
    {Message::kWriteNode,      "tarquel: write node ret = %d, node = %s, config = %d"},
    {Message::kReadMissing,    "tarquel: read node open %s error: no node/permission"},
    {Message::kWriteMissing,   "tarquel: write node open %s error: no node/permission"},
    {Message::kInterOpen,      "tarQuel: WriteNodesValue open %s fail errno(%d)!"},
    {Message::kInterWrite,     "tarQuel: WriteNodesValue write %s to %s fail errno(%d)!"},
    {Message::kCeiling,        "tarQuel: GetLimitTagValue cmdId=%d, tag=%d, freq=%d"},
    {Message::kOther,          "tarquel: fscanf_s failed, ret = %d, node = %s"},
    {Message::kOther,          "tarquel: fprintf failed, ret = %d, node = %s"},
    {Message::kOther,          "tarQuel: invalid scene params cmdId is %d"},
    {Message::kOther,          "tarQuel: write node failed, tag=%s, value=%s"},
    {Message::kOther,          "tarQuel: WriteNodesValue invalid params!"},
    {Message::kOther,          "tarquel: DoPerfGetConfig invalid request, tagLen is %d"},
    {Message::kOther,          "tarquel: DoPerfGetConfig invalid tag value: %d !"},
    {Message::kOther,          "tarquel: invalid request, argument is NULL in %s!"},
    {Message::kOther,          "tarquel: SavePerfVal invalid request, cmdId is %d, len is %d"},
    {Message::kOther,          "tarquel: action list is invalid, cmdId is %d, tagLen is %d"},
    {Message::kOther,          "tarquel: action list is NULL, cmdId is %d, tagLen is %d"},
    {Message::kOther,          "tarQuel: invalid scene list cmdId is %d, tagLen is %d"},
    // The start, scene files, the timer, the perf HAL's library
    {Message::kOther,          "tarquel: cpu range %d-%d is too wide"},
    {Message::kOther,          "tarquel: cmdId %d is between 4225 ~ 4352"},
    {Message::kOther,          "tarquel: xml is invalid, cmdId is %d element is %s"},
    {Message::kOther,          "tarquel: xml is invalid, cmdId is %d element is NULL"},
    {Message::kOther,          "tarquel: xml is invalid, too many elements"},
    {Message::kOther,          "tarquel: xml element is invalid, cmdId is %d element is %s"},
    {Message::kOther,          "tarquel: multi-duration exist! we choose the first value(%d, %d)"},
    {Message::kOther,          "tarquel don't support multi-action in long term scene, cmdId is %d"},
    {Message::kOther,          "tarquel: get cpu node info failed!, %d"},
    {Message::kOther,          "tarquel: get cpu isolation info failed!, %d"},
    {Message::kOther,          "tarquel: ParserCpuInfo failed!"},
    {Message::kOther,          "tarquel: ParseFreqLevelInfo failed! level %d is not 0 to 9, element is %s"},
    {Message::kOther,          "tarquel: ParseFreqLevelInfo failed!"},
    {Message::kOther,          "inter xml is invalid, cmdId is %d element is %s"},
    {Message::kOther,          "cmdId(%d) multi-tag(%s) exist!"},
    {Message::kOther,          "tarquel: server plat has been created, do not need initialize again"},
    {Message::kOther,          "tarquel: property_get() failed!"},
    {Message::kOther,          "tarquel: dlopen() libqti-perfd-client.so failed!"},
    {Message::kOther,          "tarquel: dlsym() perf_lock_acq failed!"},
    {Message::kOther,          "tarquel: dlsym() perf_lock_rel failed!"},
    {Message::kOther,          "tarQuel: PerfLockAcq snprintf_s trace_buf error"},
    {Message::kOther,          "tarQuel: PerfLockAcq snprintf_s trace_buf_ret error"},
    {Message::kOther,          "tarQuel: PerfLockRel snprintf_s error"},
    {Message::kOther,          "tarquel TimerCallback Failed"},
    {Message::kOther,          "tarquel Failed to create timer"},
    {Message::kOther,          "Failed to delete timer for a request"},
    {Message::kOther,          "Failed to get timer"},
    {Message::kOther,          "Failed to set timer"},
};
// clang-format on

constexpr size_t kPrefixLength = std::string_view("tarquel: ").size();

// More than an int has.
constexpr size_t kMostDigits = 11;

// A conversion of a form: where it begins and ends, and what it reads.
struct Conversion {
    size_t begin = 0;
    size_t end = 0;
    char kind = 'd';
};

std::optional<Conversion> NextConversion(std::string_view form, size_t from) {
    const size_t begin = form.find('%', from);
    if (begin == form.npos) return std::nullopt;
    size_t end = begin + 1;
    while (end < form.size() && form[end] >= '0' && form[end] <= '9') ++end;
    return Conversion{begin, end + 1, form[end]};
}

// What became of reading a text after a form.
enum class Reading : uint8_t {
    kFits,
    kCut,      // it ends early
    kDamaged,  // it goes wrong behind its second value: no chance
    kOther,    // it is another message
};

class FormReader {
  public:
    FormReader(std::string_view form, std::string_view text) : mForm(form), mText(text) {}

    Reading Read(MessageMatch& match) {
        match.numbers.clear();
        match.words.clear();
        size_t at = 0;
        for (auto conversion = NextConversion(mForm, at); conversion;
             conversion = NextConversion(mForm, at)) {
            if (const auto fault = TakeLiteral(mForm.substr(at, conversion->begin - at))) {
                return *fault;
            }
            at = conversion->end;
            const bool isTaken = conversion->kind == 's' ? TakeWord(at, match.words)
                                                         : TakeNumber(conversion->kind, match);
            if (!isTaken) return Fault();
            ++mValues;
        }
        if (const auto fault = TakeLiteral(mForm.substr(at))) return *fault;
        return mText.empty() ? Reading::kFits : Reading::kOther;
    }

  private:
    Reading Fault() const {
        if (mText.empty()) return Reading::kCut;
        return mValues >= 2 ? Reading::kDamaged : Reading::kOther;
    }

    std::optional<Reading> TakeLiteral(std::string_view literal) {
        if (mText.starts_with(literal)) {
            mText.remove_prefix(literal.size());
            return std::nullopt;
        }
        const size_t length = std::min(literal.size(), mText.size());
        size_t same = 0;
        while (same < length && mText[same] == literal[same]) ++same;
        mText.remove_prefix(same);
        return Fault();
    }

    bool TakeNumber(char kind, MessageMatch& match) {
        while (!mText.empty() && mText.front() == ' ') mText.remove_prefix(1);
        const bool isHex = kind != 'd';
        const bool isNegative = !isHex && !mText.empty() && mText.front() == '-';
        if (isNegative) mText.remove_prefix(1);
        uint64_t number = 0;
        const std::string_view digits = mText.substr(0, kMostDigits);
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), number, isHex ? 16 : 10);
        if (error != std::errc()) return false;
        mText.remove_prefix(static_cast<size_t>(end - digits.data()));
        const auto value = static_cast<int64_t>(number);
        // No int prints like this: it is not the plug-in's.
        if (value > (isHex ? INT64_C(0xFFFFFFFF) : INT64_C(0x7FFFFFFF) + isNegative)) return false;
        match.numbers.push_back(isNegative ? -value : value);
        return true;
    }

    // Up to the literal that follows in the form, or to the end.
    bool TakeWord(size_t at, std::vector<std::string>& words) {
        const auto next = NextConversion(mForm, at);
        const std::string_view literal =
            mForm.substr(at, next ? next->begin - at : std::string_view::npos);
        const size_t end = literal.empty() ? mText.size() : mText.find(literal);
        if (end == mText.npos || end == 0) {
            mText = {};
            return false;
        }
        words.emplace_back(mText.substr(0, end));
        mText.remove_prefix(end);
        return true;
    }

    const std::string_view mForm;
    std::string_view mText;
    int mValues = 0;
};

struct Candidate {
    const MessageForm* form = nullptr;
    std::string_view literal;  // up to its first conversion
};

// The forms that a text may be of, in the order of the table: most differ in their first letter
// behind the prefix. A text that ends before it may be of any.
const std::vector<Candidate>& CandidatesFor(std::string_view text) {
    constexpr size_t kNoLetter = 256;
    static const auto byLetter = [] {
        std::array<std::vector<Candidate>, kNoLetter + 1> all;
        for (const MessageForm& form : kForms) {
            const std::string_view literal = form.text.substr(0, form.text.find('%'));
            const bool isShort = literal.size() <= kPrefixLength;
            for (size_t letter = 0; letter < all.size(); ++letter) {
                const bool mayFit = isShort || letter == kNoLetter ||
                                    static_cast<unsigned char>(literal[kPrefixLength]) == letter;
                if (mayFit) all[letter].push_back({&form, literal});
            }
        }
        return all;
    }();
    const bool hasLetter = text.size() > kPrefixLength;
    return byLetter[hasLetter ? static_cast<unsigned char>(text[kPrefixLength]) : kNoLetter];
}

}  // namespace

const std::vector<MessageForm>& MessageForms() {
    return kForms;
}

bool MayBeMessage(std::string_view text) {
    // The table's own, as far as a text may be cut.
    static const std::set<std::string_view> beginnings = [] {
        std::set<std::string_view> all;
        for (const MessageForm& form : kForms) all.insert(form.text.substr(0, 4));
        return all;
    }();
    return beginnings.contains(text.substr(0, 4));
}

bool BeginsAsPlugin(std::string_view text) {
    if (text.starts_with("tarquel: ") || text.starts_with("tarQuel: ")) return true;
    return text.starts_with("tarquel ") && MatchMessage(text).message != Message::kUnknown;
}

MessageMatch MatchMessage(std::string_view text) {
    MessageMatch match;
    bool isTorn = false;
    for (const auto& [form, literal] : CandidatesFor(text)) {
        if (!literal.starts_with(text.substr(0, literal.size()))) continue;
        const Reading reading = FormReader(form->text, text).Read(match);
        if (reading == Reading::kFits) {
            match.message = form->message;
            match.onlyDebug = form->onlyDebug;
            return match;
        }
        isTorn = isTorn || reading == Reading::kDamaged ||
                 (reading == Reading::kCut && text.size() > kPrefixLength);
    }
    MessageMatch none;
    none.isTorn = isTorn;
    return none;
}

}  // namespace lab
