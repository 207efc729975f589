#include "lab/pictures/picture_files.h"

namespace lab {

PictureFiles::PictureFiles(const std::string& trace, const std::string& report) {
    if (!trace.empty()) mTrace.emplace(trace);
    if (!report.empty()) mReport.emplace(report);
}

void PictureFiles::Begin(const DeviceProfile& device, const Book& book) {
    if (mTrace || mReport) mHistory.emplace(device, book);
}

void PictureFiles::Observe(const Event& event) {
    if (mHistory) mHistory->Observe(event);
}

void PictureFiles::End(Time now, const std::function<PictureHead()>& head) {
    if (!mHistory) return;
    mHistory->Finish(now);
    const PictureHead shown = head();
    if (mTrace) mTrace->Fill([&](std::ostream& out) { WriteTrace(*mHistory, shown, out); });
    if (mReport) mReport->Fill([&](std::ostream& out) { WriteReport(*mHistory, shown, out); });
}

}  // namespace lab
