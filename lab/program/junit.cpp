#include "lab/program/junit.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "lab/names/text.h"

namespace lab {
namespace {

// Text between tags or quotation marks: what XML cannot hold is replaced.
std::string XmlText(std::string text) {
    constexpr std::pair<const char*, const char*> kEntities[] = {
        {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"\n", "&#10;"}};
    for (const auto& [what, entity] : kEntities) text = ReplacedAll(std::move(text), what, entity);
    std::replace_if(
        text.begin(), text.end(),
        [](char letter) { return static_cast<unsigned char>(letter) < ' '; }, '?');
    return text;
}

}  // namespace

void WriteJunit(const std::vector<RunResult>& results, std::ostream& out) {
    size_t failures = 0;
    size_t errors = 0;
    double seconds = 0;
    for (const RunResult& result : results) {
        failures += result.Exit() == kFindings ? 1 : 0;
        errors += result.error ? 1 : 0;
        seconds += result.tookSeconds;
    }
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << fmt::format(
               "<testsuites>\n"
               "  <testsuite name=\"tarquel-lab\" tests=\"{}\" failures=\"{}\" errors=\"{}\" "
               "skipped=\"0\" time=\"{:.3f}\">\n",
               results.size(), failures, errors, seconds);
    for (const RunResult& result : results) {
        const std::filesystem::path file(result.scenario);
        out << fmt::format("    <testcase classname=\"{}\" name=\"{}\" file=\"{}\" time=\"{:.3f}\"",
                           XmlText(file.parent_path().string()), XmlText(file.stem().string()),
                           XmlText(result.scenario), result.tookSeconds);
        if (result.Exit() == kFine) {
            out << "/>\n";
            continue;
        }
        const bool isError = result.error.has_value();
        const char* const kind = isError ? "error" : "failure";
        const std::string head =
            isError ? *result.error : Counted(result.findings.size(), "finding");
        out << fmt::format(">\n      <{} message=\"{}\">", kind, XmlText(head));
        for (const RunFinding& finding : result.findings) out << XmlText(finding.text) << "\n";
        out << fmt::format("</{}>\n    </testcase>\n", kind);
    }
    out << "  </testsuite>\n</testsuites>\n";
}

}  // namespace lab
