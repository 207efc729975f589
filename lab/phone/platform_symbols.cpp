// What the platform and the policy server give the plug-in: properties, log, atrace, the
// bounds-checked C functions, the jank log, on-demand durations, and the way from the perf-HAL
// library to the phone's HAL. Without a phone they give harmless answers.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "lab/phone/phone.h"
#include "lab/phone/real_function.h"
#include "tarquel/jank_log.h"
#include "tarquel/on_demand_boost_server.h"
#include "tarquel/properties.h"
#include "tarquel/securec.h"

namespace {

using lab::Phone;

// Android's log cuts a line at this size.
constexpr size_t kLogLineMax = 1024;

std::string Format(const char* format, va_list arguments) {
    char text[kLogLineMax];
    vsnprintf(text, sizeof(text), format, arguments);
    return text;
}

// A call of the HAL, which takes one at a time.
class HalCall {
  public:
    explicit HalCall(Phone& phone) {
        if (sUnderWay++ != 0) ++phone.GetBreaches().meetingHalCalls;
        phone.GetFaults().PassHalDelay();
    }
    ~HalCall() { --sUnderWay; }
    HalCall(const HalCall&) = delete;
    HalCall& operator=(const HalCall&) = delete;

  private:
    static inline std::atomic<int> sUnderWay{0};
};

int Log(int priority, const char* tag, const std::string& text) {
    static const auto real =
        lab::RealFunction<int(int, const char*, const char*)>("__android_log_write");
    if (Phone* const phone = Phone::Current()) {
        lab::LogLine line{priority, std::nullopt, text};
        if (tag != nullptr) line.tag = tag;
        phone->Events().Add(std::move(line));
        return static_cast<int>(text.size());
    }
    return real == nullptr ? 0 : real(priority, tag, text.c_str());
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the platform's names
int __android_log_write(int priority, const char* tag, const char* text) {
    return Log(priority, tag, text);
}

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    return Log(priority, tag, Format(format, arguments));
}

__attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                              const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = Log(priority, tag, Format(format, arguments));
    va_end(arguments);
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)

int property_get(const char* key, char* value, const char* defaultValue) {
    std::string found;
    if (const Phone* const phone = Phone::Current()) found = phone->Property(key).value_or("");
    if (found.empty() && defaultValue != nullptr) found = defaultValue;
    const size_t length = std::min(found.size(), tarquel::kPropertyValueMax - 1);
    std::memcpy(value, found.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

uint64_t atrace_get_enabled_tags() {
    const Phone* const phone = Phone::Current();
    return phone != nullptr && phone->IsTraceEnabled() ? 1 : 0;
}

void atrace_begin_body(const char* name) {
    if (Phone* const phone = Phone::Current()) phone->Events().Add(lab::TraceSection{true, name});
}

void atrace_end_body() {
    if (Phone* const phone = Phone::Current()) phone->Events().Add(lab::TraceSection{false, ""});
}

int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...) {
    if (dest == nullptr || destMax == 0) return -1;
    dest[0] = '\0';
    if (format == nullptr) return -1;
    const size_t room = count < destMax ? count + 1 : destMax;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, room, format, arguments);
    va_end(arguments);
    return length < 0 || static_cast<size_t>(length) >= room ? -1 : length;
}

int sscanf_s(const char* buffer, const char* format, ...) {
    if (buffer == nullptr || format == nullptr) return EOF;
    va_list arguments;
    va_start(arguments, format);
    const int result = vsscanf(buffer, format, arguments);
    va_end(arguments);
    return result;
}

int fscanf_s(FILE* stream, const char* format, ...) {
    if (stream == nullptr || format == nullptr) return EOF;
    va_list arguments;
    va_start(arguments, format);
    const int result = vfscanf(stream, format, arguments);
    va_end(arguments);
    return result;
}

int memset_s(void* dest, size_t destMax, int c, size_t count) {
    if (dest == nullptr) return EINVAL;
    if (count > destMax) return ERANGE;
    std::memset(dest, c, count);
    return 0;
}

int __zqlog_jank_print(int priority, int id, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Format(format, arguments);
    va_end(arguments);
    if (Phone* const phone = Phone::Current()) {
        phone->Events().Add(lab::JankRecord{priority, id, text});
    }
    return 0;
}

// Called by libqti-perfd-client.so.
int LabPerfLockAcq(int handle, int durationMs, const int* list, int count) {
    Phone* const phone = Phone::Current();
    if (phone == nullptr) return -1;
    const HalCall call(*phone);
    return phone->Hal().Acquire(handle, durationMs, list, count);
}

int LabPerfLockRel(int handle) {
    Phone* const phone = Phone::Current();
    if (phone == nullptr) return -1;
    const HalCall call(*phone);
    return phone->Hal().Release(handle);
}

}  // extern "C"

OnDemandBoostServer& OnDemandBoostServer::getInstance() {
    static OnDemandBoostServer server;
    return server;
}

int OnDemandBoostServer::GetDuration(int cmdId, int, const int*) {
    const Phone* const phone = Phone::Current();
    return phone == nullptr ? 0 : phone->OnDemandDuration(cmdId);
}
