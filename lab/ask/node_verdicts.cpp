#include "lab/ask/node_verdicts.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "lab/book/book.h"
#include "lab/names/node_names.h"
#include "lab/names/resource_names.h"
#include "lab/names/text.h"

namespace lab {
namespace {

using By = Ask::By;

// The tags of online cores.
constexpr int kFirstCoresTag = 61;
constexpr int kLastCoresTag = 66;

// The numbers of a node's text; "40.00" counts as 40.
std::vector<double> Numbers(const std::string& text) {
    std::istringstream stream(text);
    std::vector<double> numbers;
    for (double number = 0; stream >> number;) numbers.push_back(number);
    return numbers;
}

class Weigher {
  public:
    Weigher(const NodeTarget& target, const Book& book)
        : mTarget(target),
          mBook(book),
          mKernel(book.GetKernel()),
          mLayout(book.ClusterLayout()),
          mAsks(book.AsksOn(target)),
          mLastWrite(book.LastWrite(target)),
          mClaims(book.ClaimsOn(target.path)),
          mRequests(mKernel.RequestsOn(target.path)),
          mValue(mKernel.Value(target.path)) {}

    std::vector<Holder> Weigh(const std::string& boot) {
        std::vector<Holder> holders;
        for (const Ask& ask : mAsks) holders.push_back(WeighAsk(ask));
        AddPluginLocks(boot, holders);
        AddWrite(boot, holders);
        std::stable_partition(holders.begin(), holders.end(),
                              [](const Holder& holder) { return holder.wins; });
        return holders;
    }

  private:
    // A capture may tell of a lock without its number.
    static void SetLock(Holder& holder, int handle, const char* whose) {
        holder.handle = handle;
        holder.held = fmt::format("lock {}{}", handle < 0 ? "?" : std::to_string(handle), whose);
    }

    Holder WeighAsk(const Ask& ask) {
        Holder holder;
        holder.ask = ask;
        if (ask.by == By::kLock) {
            SetLock(holder, ask.handle, "");
            Judge(ask.handle, ask.opcode, holder);
        } else {
            WeighTagAsk(holder);
        }
        return holder;
    }

    // Layer one: words on a tag against each other, then the lock that carries one of them.
    void WeighTagAsk(Holder& holder) {
        const Ask& ask = holder.ask;
        const BookedLock* lock = mBook.FindTagLock(ask.opcode);
        if (lock && lock->list[1] == HalValue(ask.tag, static_cast<int>(ask.value))) {
            SetLock(holder, lock->handle, " of the tag");
            Judge(lock->handle, ask.opcode, holder);
            return;
        }
        holder.held = "no lock";
        const Ask* rival = RivalOf(ask);
        if (rival && !rival->isRemembered) {
            holder.verdict =
                fmt::format("{}'s word of {} counts alone until the next request on the tag",
                            rival->who, rival->ValueText());
        } else if (rival) {
            holder.verdict =
                fmt::format("{} asks for {}: the {} wins among the words on a tag", rival->who,
                            rival->ValueText(),
                            ask.bound == Bound::kFloor ? "highest floor" : "lowest ceiling");
        } else if (const Ask* lifter = LifterOf(ask)) {
            holder.verdict = fmt::format(
                "{} lifted the tag's limit: until the next request on it nobody's word counts",
                lifter->request->Quoted());
        } else if (mBook.IsTagLockRefused(ask.opcode)) {
            holder.verdict = "the HAL refused the lock that should carry it";
        } else if (!lock) {
            WithoutLock(holder);
        } else if (ask.bound == Bound::kFloor &&
                   lock->list[1] < HalValue(ask.tag, static_cast<int>(ask.value))) {
            SetLock(holder, lock->handle, " of the tag");
            const std::string cut = LockValue(ask.opcode, lock->list[1]);
            const std::vector<double> now = Numbers(mValue);
            const std::vector<double> ceiling = Numbers(mKernel.Value(OtherEnd(mTarget.path)));
            const bool hasRisen = !now.empty() && !ceiling.empty() && ceiling[0] > now[0];
            if (hasRisen) {
                holder.notes.push_back("the plug-in cut it to a ceiling that has risen since, " +
                                       cut + ", and leaves it there");
                Judge(lock->handle, ask.opcode, holder);
            } else {
                holder.verdict = fmt::format("{}: the plug-in cut it to the ceiling in force, {}",
                                             kFloorAboveCeiling, cut);
            }
        } else if (lock->order < ask.order) {
            holder.verdict =
                "a group asked it: the tag's own lock stays as it is until the next request on it";
        } else {
            holder.verdict = lock->request->Quoted() + " gave the tag's lock another value since";
        }
    }

    void WithoutLock(Holder& holder) const {
        const Ask& ask = holder.ask;
        const std::vector<double> now = Numbers(mValue);
        const bool isFree = ask.bound == Bound::kCeiling && !now.empty() &&
                            static_cast<double>(ask.value) >= now[0];
        if (ask.tag >= kFirstCoresTag && ask.tag <= kLastCoresTag) {
            holder.verdict =
                "core isolation is off in qcom_cpu_info: no lock on online cores is taken";
        } else if (isFree && mClaims.empty()) {
            holder.verdict =
                "no stricter than the hardware's own end: needs no lock, limits nothing";
        } else {
            const std::string releaser = mBook.WhoReleasedTag(ask.opcode);
            holder.verdict = "the plug-in remembers it, but no lock carries it" +
                             (releaser.empty() ? "" : ": " + releaser + " released the tag's lock");
        }
    }

    // The other word on a limit that the tag's lock is to carry; null when it is `ask` itself.
    const Ask* RivalOf(const Ask& ask) const {
        const Ask* winner = IsSharedLimit(ask.tag) ? mBook.StrictestWord(ask.tag) : nullptr;
        return winner && winner->order != ask.order ? winner : nullptr;
    }

    // The word that lifts a limit for the moment, whoever asks for one; null without.
    const Ask* LifterOf(const Ask& ask) const {
        const Ask* last = nullptr;
        for (const Ask& word : mBook.Words()) {
            if (word.tag == ask.tag) last = &word;
        }
        const bool lifts = last && !last->isRemembered && last->value == 0;
        return lifts && IsSharedLimit(ask.tag) ? last : nullptr;
    }

    // Layer two: locks against each other.
    void Judge(int handle, int opcode, Holder& holder) {
        const PerfHal::Claim* claim = FirstClaim([&](const PerfHal::Claim& each) {
            return each.handle == handle && each.opcode == opcode;
        });
        if (!claim) {
            holder.verdict = "there is no node for the lock to reach";
            return;
        }
        const Drive drive = mTarget.DriveOf(opcode, mKernel.Profile(), mKernel);
        const std::string rounding = RoundingText(drive, claim->value, claim->nodeValue);
        if (!rounding.empty()) holder.notes.push_back(rounding);
        if (claim->wins) return JudgeInKernel(*claim, holder);
        const PerfHal::Claim* lifter = claim->isInPlace ? nullptr : InPlaceClaim();
        if (lifter && drive.winner == Drive::Winner::kLowest) {
            holder.verdict = fmt::format(
                "lifted for its time by {}: a scaling maximum stands in place of all ceilings",
                NameOf(*lifter));
            return;
        }
        const PerfHal::Claim* rival = FirstClaim([&](const PerfHal::Claim& other) {
            return other.wins && other.entry == claim->entry && other.isInPlace == claim->isInPlace;
        });
        if (!rival) {
            holder.verdict = "another lock counts";
        } else if (rival->nodeValue == claim->nodeValue) {
            holder.verdict = "asks for the same as " + NameOf(*rival);
            JudgeInKernel(*claim, holder);
        } else if (drive.winner == Drive::Winner::kNewest) {
            holder.verdict = NameOf(*rival) + " asked later: the newest lock wins here";
        } else {
            const bool isFloor = drive.winner == Drive::Winner::kHighest;
            holder.verdict = fmt::format("{} has {}: the {} wins among locks", NameOf(*rival),
                                         NodeValue(rival->nodeValue),
                                         isFloor ? "highest floor" : "lowest ceiling");
        }
    }

    // Layer three: the HAL's value against what programs wrote, the other end and the hardware.
    void JudgeInKernel(const PerfHal::Claim& claim, Holder& holder) const {
        const std::vector<double> shown = Numbers(mValue);
        const size_t entry = claim.entry.value_or(0);
        const double wanted = static_cast<double>(claim.nodeValue);
        const bool isShown = entry < shown.size() && shown[entry] == wanted;
        holder.wins = true;
        if (isShown) {
            if (holder.verdict.empty()) holder.verdict = WhyItWins(claim);
            return;
        }
        if (IsOverwritten(claim)) {
            holder.wins = false;
            holder.verdict = fmt::format(
                "{} of {} came later, and a later write of this node replaces the lock's",
                WriteName(), mLastWrite->text);
            return;
        }
        const bool isFloor = holder.ask.bound == Bound::kFloor;
        const std::string other = OtherEnd(mTarget.path);
        const std::vector<double> end = Numbers(mKernel.Value(other));
        const double now = shown.empty() ? 0 : shown[0];
        if (mRequests && !claim.isInPlace && IsWrittenStricter(claim, isFloor)) {
            holder.wins = false;
            holder.verdict =
                fmt::format("{} of {} is {}: the {} of lock and write counts", WriteName(),
                            NodeValue(mRequests->program), isFloor ? "higher" : "lower",
                            isFloor ? "higher floor" : "lower ceiling");
        } else if (isFloor && !end.empty() && end[0] < wanted && now == end[0]) {
            holder.wins = false;
            holder.verdict =
                fmt::format("{}: {} is at {}, and a floor reads no more (ask 'why' of that node)",
                            kFloorAboveCeiling, ShortNode(other), mKernel.Value(other));
        } else {
            holder.verdict = WhyItWins(claim);
            holder.notes.push_back(fmt::format("the kernel makes {} of {}: {}", mValue,
                                               NodeValue(claim.nodeValue),
                                               ClampReason(other, end)));
        }
    }

    std::string ClampReason(const std::string& other, const std::vector<double>& end) const {
        if (!end.empty() && !mRequests && !mTarget.path.ends_with("_cpus")) {
            return fmt::format("the node stays between the hardware's end and {} at {}",
                               ShortNode(other), mKernel.Value(other));
        }
        return "it clamps to what the hardware has";
    }

    // True when a program has written the node since the lock did. Only the ordinary limits keep
    // the HAL's request beside the program's; elsewhere, and in place of them, the last write
    // counts.
    bool IsOverwritten(const PerfHal::Claim& claim) const {
        if (!mLastWrite || (mRequests && !claim.isInPlace)) return false;
        if (mRequests) {
            return mRequests->inPlace != claim.nodeValue &&
                   mRequests->inPlace == mRequests->program;
        }
        const std::string& written = mLastWrite->text;
        return written == mValue || Numbers(written) == Numbers(mValue);
    }

    bool IsWrittenStricter(const PerfHal::Claim& claim, bool isFloor) const {
        if (mRequests->inPlace) return false;
        return isFloor ? mRequests->program > claim.nodeValue
                       : mRequests->program < claim.nodeValue;
    }

    std::string WhyItWins(const PerfHal::Claim& claim) const {
        if (claim.isInPlace) return "in place of all ceilings and writes while its lock lasts";
        size_t rivals = 0;
        for (const PerfHal::Claim& other : mClaims) rivals += other.entry == claim.entry ? 1 : 0;
        for (const Ask& ask : mAsks) {
            if (ask.by == By::kClient || ask.by == By::kScene) ++rivals;
        }
        const Drive drive = mTarget.DriveOf(claim.opcode, mKernel.Profile(), mKernel);
        if (rivals < 2 || (rivals == 2 && mClaims.size() == 1)) return "nobody else asks";
        switch (drive.winner) {
            case Drive::Winner::kHighest:
                return "the highest floor of those that ask";
            case Drive::Winner::kLowest:
                return "the lowest ceiling of those that ask";
            case Drive::Winner::kNewest:
                break;
        }
        return "the newest lock";
    }

    // Locks of the plug-in that carry nobody's word that is known: a lifted limit's default, a
    // floor that went down with its ceiling, what was asked before a capture begins.
    void AddPluginLocks(const std::string& boot, std::vector<Holder>& holders) {
        for (const auto& [handle, lock] : mBook.Locks()) {
            const bool isTold = !lock.list.empty();
            const bool isOnNode =
                isTold ? mTarget.opcodes.count(lock.list[0]) > 0 : mTarget.HasTag(lock.tag);
            const bool isCarrier =
                std::any_of(holders.begin(), holders.end(),
                            [handle = handle](const Holder& h) { return h.handle == handle; });
            if (lock.tag < 0 || !isOnNode || isCarrier) continue;
            const bool isUnnamed = lock.owner == kUnnamed;
            Holder holder;
            holder.ask.who = isUnnamed || lock.askedBy ? lock.owner : "the plug-in's lock";
            holder.ask.request = lock.askedBy ? lock.askedBy : lock.request;
            holder.ask.since = lock.since;
            holder.ask.isEarlier = lock.isEarlier;
            SetLock(holder, handle, " of the tag");
            if (isTold) {
                holder.ask.opcode = lock.list[0];
                holder.ask.value = lock.list[1];
                holder.ask.handle = handle;
                const Resource resource = ResourceOf(lock.list[0], mLayout);
                holder.ask.unit = resource.unit;
                holder.ask.bound = resource.bound;
                Judge(handle, lock.list[0], holder);
            } else {
                holder.ask.by = By::kWrite;  // without a value
                holder.verdict = "what it asks for is not in the capture";
            }
            if (lock.askedBy && !isUnnamed) {
                const bool isRefused = lock.askedBy->facts && lock.askedBy->facts->result != 0;
                holder.notes.emplace_back(
                    isRefused
                        ? "the request was refused; long scenes are weighed against it all the same"
                        : "its group has another word since, which the tag's own lock does not "
                          "follow");
            } else if (isTold && !isUnnamed && mValue == boot) {
                holder.wins = false;
                holder.verdict = "nobody's word: a lifted limit keeps its lock at the default";
            } else if (isTold && !isUnnamed) {
                holder.notes.emplace_back(
                    "nobody's word: a floor that went down with its ceiling, "
                    "or a lifted limit's default");
            }
            holders.push_back(std::move(holder));
        }
    }

    // A write that says something else than the locks and differs from the value after boot.
    void AddWrite(const std::string& boot, std::vector<Holder>& holders) const {
        if (!mLastWrite) return;
        const Ask& write = *mLastWrite;
        const std::vector<double> written = Numbers(write.text);
        const auto isSame = [&](const Holder& holder) {
            const bool isWord = holder.ask.by == By::kClient || holder.ask.by == By::kScene;
            return isWord && written == Numbers(std::to_string(holder.ask.value));
        };
        const bool isAlone = mClaims.empty();
        const bool isShown = written == Numbers(mValue) || write.text == mValue;
        const PerfHal::Claim* const lifter = InPlaceClaim();
        const bool replacesLocks = FirstClaim(
            [this](const PerfHal::Claim& claim) { return claim.wins && IsOverwritten(claim); });
        for (Holder& holder : holders) {
            if (!isSame(holder)) continue;
            holder.notes.emplace_back("the plug-in also wrote it to the node itself");
            const bool isFelt =
                isAlone ? written != Numbers(boot) : HasNoWinner(holders) && !IsCutFloor();
            if (isShown && !holder.wins && (isFelt || replacesLocks)) {
                // That another asks for more is no reason where what it asks for is not in force.
                const bool hasRival = RivalOf(holder.ask) != nullptr;
                holder.wins = true;
                holder.verdict = "by that write alone: " +
                                 (replacesLocks ? "it came later than the lock"
                                  : !isAlone    ? "it is stricter than every lock"
                                  : hasRival    ? "nothing has replaced it, and no lock is held"
                                                : holder.verdict);
            }
            return;
        }
        if (written == Numbers(boot) && !replacesLocks) return;
        Holder holder;
        holder.ask = write;
        if (replacesLocks) {
            holder.wins = true;
            holder.verdict = "came later than the lock that stood here, and replaces it";
        } else if (lifter) {
            holder.verdict =
                fmt::format("{} stands in its place while the lock lasts", NameOf(*lifter));
        } else if (IsCutFloor()) {
            holder.verdict = "the floor stands at the ceiling: see there";
        } else if (isAlone || isShown || HasNoWinner(holders)) {
            holder.wins = true;
            holder.verdict = isAlone ? "no lock bears on the node" : "stricter than every lock";
            if (!isShown) {
                holder.notes.push_back(
                    fmt::format("the kernel makes {} of {}", mValue, write.text));
            }
        } else {
            holder.verdict = "a lock is stricter, or stands in its place";
        }
        holders.push_back(std::move(holder));
    }

    // True for a floor that reads its ceiling because more is asked than that.
    bool IsCutFloor() const {
        const std::string other = OtherEnd(mTarget.path);
        const bool isFloor = mTarget.path.find("min", mTarget.path.rfind('/')) != std::string::npos;
        const std::vector<double> ceiling = Numbers(mValue);
        if (!isFloor || mKernel.Value(other) != mValue || !mRequests || ceiling.empty())
            return false;
        return FirstClaim([&](const PerfHal::Claim& claim) {
            return static_cast<double>(claim.nodeValue) > ceiling[0];
        });
    }

    static bool HasNoWinner(const std::vector<Holder>& holders) {
        return std::none_of(holders.begin(), holders.end(),
                            [](const Holder& holder) { return holder.wins; });
    }

    // The oldest claim of which `is` holds; null without one.
    template <typename Is>
    const PerfHal::Claim* FirstClaim(const Is& is) const {
        const auto found = std::find_if(mClaims.begin(), mClaims.end(), is);
        return found == mClaims.end() ? nullptr : &*found;
    }

    const PerfHal::Claim* InPlaceClaim() const {
        return FirstClaim(
            [](const PerfHal::Claim& claim) { return claim.isInPlace && claim.wins; });
    }

    // "game_fight (9220)" with its lock.
    std::string NameOf(const PerfHal::Claim& claim) const {
        for (const Ask& ask : mAsks) {
            if (ask.by == By::kLock && ask.handle == claim.handle) {
                return fmt::format("{}'s lock {}", ask.who, claim.handle);
            }
        }
        for (const Ask& ask : mAsks) {
            if (ask.by == By::kLock || ask.opcode != claim.opcode) continue;
            if (HalValue(ask.tag, static_cast<int>(ask.value)) == claim.value) {
                return fmt::format("{}'s lock {}", ask.who, claim.handle);
            }
        }
        return fmt::format("lock {}", claim.handle);
    }

    std::string WriteName() const {
        if (!mLastWrite) return "what a program wrote";
        const Ask& write = *mLastWrite;
        return fmt::format("{} during '{}'{}", write.who, write.RequestText(),
                           AtLine(write.request->line));
    }

    std::string NodeValue(int64_t value) const {
        const std::string unit = NodeUnit(mTarget.path);
        return unit.empty() ? std::to_string(value) : fmt::format("{} {}", value, unit);
    }

    std::string LockValue(int opcode, int value) const {
        return WithUnit(value, ResourceOf(opcode, mLayout).unit);
    }

    const NodeTarget& mTarget;
    const Book& mBook;
    const Kernel& mKernel;
    const Layout mLayout;
    const std::vector<Ask> mAsks;  // oldest first
    const std::optional<Ask> mLastWrite;
    const std::vector<PerfHal::Claim> mClaims;
    const std::optional<Kernel::LimitRequests> mRequests;
    const std::string mValue;
};

}  // namespace

std::vector<Holder> WeighHolders(const NodeTarget& target, const Book& book,
                                 const std::string& boot) {
    return Weigher(target, book).Weigh(boot);
}

}  // namespace lab
