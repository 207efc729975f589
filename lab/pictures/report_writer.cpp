#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "lab/names/text.h"
#include "lab/phone/device_profile.h"
#include "lab/pictures/pictures.h"

namespace lab {
namespace {

// The folder of the page's own files: beside the lab's data.
std::filesystem::path ReportFolder() {
    const std::filesystem::path data = DataFolder();
    std::error_code ignored;
    if (std::filesystem::is_directory(data / "report", ignored)) return data / "report";
    return data.parent_path() / "report";
}

std::string ReadFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    if (!stream || !(text << stream.rdbuf())) {
        throw std::runtime_error(file.string() +
                                 ": this file of the report's page cannot be read; install the lab "
                                 "again");
    }
    return text.str();
}

}  // namespace

// page.html names what stands where: {{title}}, {{data}}, or {{FILE}} for a file of the folder.
void WriteReport(const History& history, const PictureHead& head, std::ostream& out) {
    const std::filesystem::path folder = ReportFolder();
    const std::string page = ReadFile(folder / "page.html");
    size_t next = 0;
    for (size_t open = page.find("{{"); open != std::string::npos; open = page.find("{{", next)) {
        const size_t close = page.find("}}", open);
        if (close == std::string::npos) break;
        out.write(page.data() + next, static_cast<std::streamsize>(open - next));
        const std::string name = page.substr(open + 2, close - open - 2);
        if (name == "title") {
            const std::string title = ReplacedAll(head.title + ", " + head.device, "&", "&amp;");
            out << ReplacedAll(title, "<", "&lt;");
        } else if (name == "data") {
            WriteReportData(history, head, out);
        } else {
            out << ReadFile(folder / name);
        }
        next = close + 2;
    }
    out.write(page.data() + next, static_cast<std::streamsize>(page.size() - next));
}

}  // namespace lab
