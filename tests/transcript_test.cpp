// Plays the stories of transcripts/: requests ("> ...") as the server makes them, each followed by
// all that the plug-in makes of it, in order. Numbers are tags, opcodes, command and client ids as
// they cross the boundary. TARQUEL_WRITE_TRANSCRIPTS=1 writes a story anew, to be read before it is
// committed.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <tuple>

#include "tests/support/plugin_test.h"

namespace {

using Words = std::vector<std::string>;

Words Split(const std::string& line) {
    std::istringstream text(line);
    Words words;
    for (std::string word; text >> word;) words.push_back(word);
    return words;
}

std::string OneLine(std::string text) {
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos;)
        text.replace(at, 1, "\\n");
    return text;
}

int Number(const std::string& text) {
    return static_cast<int>(std::stol(text, nullptr, 0));
}

// The number behind `key` in words such as "ms=100"; `other` without it.
int Option(const Words& words, const std::string& key, int other) {
    for (const std::string& word : words) {
        if (word.starts_with(key + "=")) return Number(word.substr(key.size() + 1));
    }
    return other;
}

// The numbers of "7" or "4..7".
std::vector<int> Range(const std::string& text) {
    const size_t dots = text.find("..");
    std::vector<int> numbers{Number(text)};
    const int last = dots == std::string::npos ? numbers[0] : Number(text.substr(dots + 2));
    while (numbers.back() < last) numbers.push_back(numbers.back() + 1);
    return numbers;
}

// The pairs of words such as "7=1843200", "61..66=1" and "0x40C00000=1".
std::vector<std::pair<int, int>> NumberPairs(const Words& words) {
    std::vector<std::pair<int, int>> pairs;
    for (const std::string& word : words) {
        const size_t at = word.find('=');
        if (at == std::string::npos || (std::isdigit(word[0]) == 0 && word[0] != '-')) continue;
        for (const int number : Range(word.substr(0, at))) {
            pairs.emplace_back(number, Number(word.substr(at + 1)));
        }
    }
    return pairs;
}

Pairs TextPairs(const Words& words) {
    Pairs pairs;
    for (const std::string& word : words) {
        const size_t at = word.find('=');
        if (at != std::string::npos) pairs.emplace_back(word.substr(0, at), word.substr(at + 1));
    }
    return pairs;
}

// An event as one line; empty for what the phone does by itself.
std::string Render(const lab::What& what) {
    if (const auto* line = std::get_if<lab::LogLine>(&what)) {
        return fmt::format("{} {}{}", "???DI?E"[line->priority & 7],
                           line -> tag ? "[" + *line->tag + "] " : "", OneLine(line->text));
    }
    if (const auto* section = std::get_if<lab::TraceSection>(&what)) {
        return section->begin ? "{ " + section->name : "}";
    }
    if (const auto* acquire = std::get_if<lab::LockAcquire>(&what)) return ToText(*acquire);
    if (const auto* release = std::get_if<lab::LockRelease>(&what)) return ToText(*release);
    if (const auto* node = std::get_if<lab::NodeAccess>(&what)) {
        // Of one that could not be opened the log tells.
        const bool isRead = node->kind == lab::NodeAccess::Kind::kRead;
        const std::string& value = isRead ? node->before : node->requested;
        if (node->byHal || value.empty()) return "";
        return fmt::format("{} {} {}", isRead ? "read" : "write", node->path, value);
    }
    if (const auto* timer = std::get_if<lab::TimerEvent>(&what)) {
        using Kind = lab::TimerEvent::Kind;
        if (timer->kind == Kind::kCreate) return fmt::format("timer on clock {}", timer->clock);
        if (timer->kind == Kind::kArm) return fmt::format("timer armed for {} ms", timer->ms);
        return timer->kind == Kind::kFire ? "timer fires" : "";
    }
    if (const auto* jank = std::get_if<lab::JankRecord>(&what)) {
        return fmt::format("jank {} {} {}", jank->priority, jank->id, jank->text);
    }
    return "";
}

std::string Describe(const Action& action) {
    std::string text = fmt::format(
        "{} {} {}ms level {} levels [{}] head {} {} {} delay {} {}% {} mask {} skip {} task {} "
        "through {} tagLen {}",
        action.cmdId, action.name, action.duration, action.boostLimitLevel,
        fmt::join(action.boostLevels, " "), action.headValue0, action.headValue1, action.headValue2,
        action.offDelayTime, action.offDelayPerc, action.hasOffDelay, action.stateMask, action.skip,
        action.taskBoost, action.breakThrough, action.tagLen);
    for (size_t i = 0; i < action.perfList.size(); i += 2) {
        text += fmt::format(" 0x{:X}={}", static_cast<unsigned>(action.perfList[i]),
                            action.perfList.at(i + 1));
    }
    for (const std::string& part : static_cast<const QcomAction&>(action).interList) {
        text += fmt::format(" '{}'", part);
    }
    return text;
}

std::vector<Words> Parts(const Words& words, const std::string& separator) {
    std::vector<Words> parts(1);
    for (const std::string& word : words) {
        if (word == separator) {
            parts.emplace_back();
        } else {
            parts.back().push_back(word);
        }
    }
    return parts;
}

// The actions of "4353 ms=100 0x40C00000=1 / 4353 ms=50 0x40C00000=2".
struct Chain {
    std::vector<std::unique_ptr<QcomAction>> actions;

    QcomAction& First() { return *actions.front(); }
    std::string Text() const {
        std::string text;
        for (const auto& action : actions) text += (text.empty() ? "" : "\n") + Describe(*action);
        return text;
    }
};

class Transcript : public PluginTest, public testing::WithParamInterface<std::string> {
  protected:
    // The request's result as text; its effects are in the phone's events.
    std::string Perform(const Words& words);

    Chain MakeChain(const Words& words) {
        Chain chain;
        for (const Words& part : Parts(words, "/")) {
            std::vector<int> list;
            for (const auto& [code, value] : NumberPairs(part)) {
                list.insert(list.end(), {code, value});
            }
            auto action = MakeAction(Number(part.at(0)), Option(part, "ms", 0), list,
                                     Option(part, "level", -1));
            action->stateMask = Option(part, "mask", 0);
            action->skip = static_cast<uint8_t>(Option(part, "skip", 0));
            action->taskBoost = static_cast<uint8_t>(Option(part, "task", 0));
            action->breakThrough = static_cast<uint8_t>(Option(part, "through", 1));
            const int level = Option(part, "boost", -1);  // the same under every thermal level
            if (level >= 0) action->boostLevels.assign(4, level);
            if (!chain.actions.empty()) chain.actions.back()->next = action.get();
            chain.actions.push_back(std::move(action));
        }
        return chain;
    }

    // Has a loader read commands: "4353 boost duration_ms=1 / boost duration_ms=2 // 4354 ...".
    std::string Load(const Words& words) {
        std::vector<std::unique_ptr<Command>> commands;
        std::vector<Command*> all;
        for (const Words& described : Parts(words, "//")) {
            commands.push_back(MakeCommand(described));
            all.push_back(commands.back().get());
        }
        std::string text;
        for (const auto& [id, chain] : Parse(all)) {
            for (const Action* action = chain.get(); action != nullptr; action = action->next) {
                text += Describe(*action) + "\n";
            }
        }
        return text.empty() ? "nothing" : text;
    }

    static std::unique_ptr<Command> MakeCommand(const Words& words) {
        auto command = std::make_unique<Command>(Number(words.at(0)));
        RawXmlData& head = command->Head();
        std::tie(head.headValue0, head.headValue1, head.headValue2) = std::tuple(10, 20, 30);
        for (const Words& part : Parts({words.begin() + 1, words.end()}, "/")) {
            Pairs pairs = TextPairs(part);
            std::erase_if(pairs, [](const auto& pair) { return pair.first[0] == '@'; });
            command->Element(part.at(0), pairs);
            command->Last().stateMask = Option(part, "@mask", 0);
            command->Last().skip = static_cast<uint8_t>(Option(part, "@skip", 0));
            command->Last().taskBoost = static_cast<uint8_t>(Option(part, "@task", 0));
        }
        return command;
    }

    std::string LoadInteractive(const Words& words) {
        const auto command = MakeCommand(words);
        const auto action = GetLibrary().ParseInteractive(command->Last());
        return action == nullptr ? "nothing" : Describe(*action);
    }

    int Interact(const Words& words) {
        const auto action = MakeAction(4353, 0, {});
        for (const auto& [name, value] : TextPairs(words)) {
            action->interList.insert(action->interList.end(), {name, value});
            ++action->tagLen;
        }
        const int payload = Number(words.at(0));
        return GetLibrary().DoInterFreqAction(*action, &payload);
    }

    std::string Query(const Words& words) {
        std::vector<int> tags;
        for (const std::string& word : words) {
            for (const int tag : Range(word)) tags.push_back(tag);
        }
        std::vector<int> values(tags.size(), -77);
        const int result =
            Adapter().DoPerfGetConfig(static_cast<int>(tags.size()), tags.data(), values.data());
        return fmt::format("{}: {}", result, fmt::join(values, " "));
    }

    // One slot more than there are entries shows what lies behind them.
    std::string Ceilings(const Words& words) {
        const Chain chain = MakeChain(words);
        std::vector<int> tags(140, -77);
        std::vector<int> freqs(140, -77);
        const int count = Adapter().GetPerfTagValue(*chain.actions[0], Option(words, "release", 0),
                                                    tags.data(), freqs.data());
        tags.resize(static_cast<size_t>(count) + 1);
        freqs.resize(static_cast<size_t>(count) + 1);
        return fmt::format("{}: {} / {}", count, fmt::join(tags, " "), fmt::join(freqs, " "));
    }

    std::string Held() {
        std::string text;
        for (const lab::PerfHal::Lock& lock : GetPhone().Hal().Held()) {
            text += fmt::format("{}{}{}", text.empty() ? "" : " ", lock.handle,
                                lock.until ? "" : " endless");
        }
        return text;
    }
};

std::string Transcript::Perform(const Words& words) {
    const std::string& what = words.at(0);
    const Words rest(words.begin() + 1, words.end());
    const auto number = [&rest](size_t at) { return Number(rest.at(at)); };
    if (what == "phone") {
        StartPhone(rest.at(0));
        for (const auto& [name, value] : TextPairs(rest)) GetPhone().SetProperty(name, value);
        LoadLibrary();
    } else if (what == "gone") {  // every node
        for (const std::string& path : GetPhone().GetKernel().Paths()) {
            GetPhone().GetKernel().Remove(path);
        }
    } else if (what == "initialize") {
        Initialize();
    } else if (what == "clusters") {
        DescribeClusters();
    } else if (what == "boot") {
        DescribeClusters();
        Initialize();
        Forget();
    } else if (what == "load") {
        return Load(rest);
    } else if (what == "interactive") {
        return LoadInteractive(rest);
    } else if (what == "interact") {
        return fmt::to_string(Interact(rest));
    } else if (what == "force") {
        GetPhone().GetKernel().Force(rest.at(0), rest.at(1));
    } else if (what == "debug") {
        return fmt::to_string(Adapter().SetDebug(rest.at(0) == "on"));
    } else if (what == "trace") {
        GetPhone().SetTraceEnabled(rest.at(0) == "on");
    } else if (what == "state") {
        return fmt::to_string(Adapter().SetState(number(0)));
    } else if (what == "refuse") {
        GetPhone().Hal().RefuseNext(number(0), number(1));
    } else if (what == "demand") {
        GetPhone().SetOnDemandDuration(number(0), number(1));
    } else if (what == "advance") {
        Advance(number(0));
    } else if (what == "limit") {
        return fmt::to_string(Limit(number(0), NumberPairs(rest)));
    } else if (what == "do") {
        Chain chain = MakeChain(rest);
        if (Option(rest, "payload", 99) == 99) return fmt::to_string(Do(chain.First()));
        const int payload[] = {Option(rest, "payload", 99), 7};
        const auto count = static_cast<unsigned>(Option(rest, "count", 1));
        return fmt::to_string(Adapter().DoAction(chain.First(), count, payload));
    } else if (what == "complete") {
        Chain chain = MakeChain(rest);
        const int result = Adapter().DoAddScalingInfo(chain.First());
        return fmt::format("{}\n{}", result, chain.Text());
    } else if (what == "task") {
        Chain chain = MakeChain({rest.begin() + 1, rest.end()});
        const int result = Adapter().DoAddTaskBoostInfo(chain.First(), rest.at(0));
        return fmt::format("{}\n{}", result, chain.Text());
    } else if (what == "count") {
        Adapter().UpdateBoostCount(number(0), number(1));
        return Adapter().CanThermalBoost(number(0)) ? "may" : "may not";
    } else if (what == "get") {
        return Query(rest);
    } else if (what == "ceilings") {
        return Ceilings(rest);
    } else if (what == "status") {
        std::map<std::string, int> status;
        const int result = Adapter().GetPerfEventStatus(status);
        return fmt::format("{}: {} {}", result, status["mPB_Prior"], status["mTB_Prior"]);
    } else if (what == "dump") {
        return GetLibrary().DumpFreqList();
    } else if (what == "cache") {
        Exported<void (*)(PerfAdapter*, int, int, int)>(
            "_ZN15QcomPerfAdapter18DoEventCacheHandleEiii")(&Adapter(), number(0), number(1),
                                                            number(2));
    } else if (what == "held") {
        return Held();
    } else {
        ADD_FAILURE() << "no such request: " << what;
    }
    return "";
}

TEST_P(Transcript, IsWhatThePlugInDoes) {
    const std::string file = TARQUEL_TESTS_FOLDER "/transcripts/" + GetParam() + ".txt";
    std::ifstream input(file);
    std::string wanted;
    std::string seen;
    for (std::string line; std::getline(input, line);) {
        wanted += line + "\n";
        if (line.empty() || line[0] == '#') seen += line + "\n";
        if (line[0] != '>') continue;
        seen += line + "\n";
        const std::string result = Perform(Split(line.substr(1)));
        for (const lab::Event& event : GetPhone().Events().Events()) {
            const std::string text = Render(event.what);
            if (!text.empty()) seen += "  " + text + "\n";
        }
        Forget();
        std::istringstream lines(result);
        for (std::string part; std::getline(lines, part);) seen += "  = " + part + "\n";
    }
    EXPECT_EQ(seen, wanted);
    if (std::getenv("TARQUEL_WRITE_TRANSCRIPTS") != nullptr) std::ofstream(file) << seen;
}

std::vector<std::string> Stories() {
    std::vector<std::string> names;
    for (const auto& file :
         std::filesystem::directory_iterator(TARQUEL_TESTS_FOLDER "/transcripts")) {
        names.push_back(file.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(, Transcript, testing::ValuesIn(Stories()),
                         [](const auto& story) { return story.param; });

}  // namespace
