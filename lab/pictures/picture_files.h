// The pictures of a run that a user asked for, as files.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "lab/book/history.h"
#include "lab/pictures/output_file.h"
#include "lab/pictures/pictures.h"

namespace lab {

class PictureFiles {
  public:
    // Opens the files at once; an empty path is a picture that nobody asked for. Throws InputError
    // for a file that cannot be opened.
    PictureFiles(const std::string& trace, const std::string& report);

    // After boot, before the first event.
    void Begin(const DeviceProfile& device, const Book& book);

    // When the book has observed the event.
    void Observe(const Event& event);

    // At the end: writes the files. `head` is asked for only when there is one to write.
    void End(Time now, const std::function<PictureHead()>& head);

  private:
    std::optional<OutputFile> mTrace;
    std::optional<OutputFile> mReport;
    std::optional<History> mHistory;
};

}  // namespace lab
