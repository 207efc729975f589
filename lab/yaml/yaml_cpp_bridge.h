// The C interface between the lab and yaml-cpp: a parser that hands out events.
#pragma once

#include <cstddef>

extern "C" {

// Where the events of a document go. Every function gets `context` first; lines and columns are
// 1-based. No function may throw.
struct LabYamlSink {
    void* context;
    void (*document)(void* context, int line, int column);
    void (*null)(void* context, int line, int column);
    void (*scalar)(void* context, int line, int column, const char* text, size_t length);
    void (*listBegin)(void* context, int line, int column);
    void (*listEnd)(void* context);
    void (*mapBegin)(void* context, int line, int column);
    void (*mapEnd)(void* context);
    // Text that is no YAML, or YAML that the lab does not take (anchors and aliases). The last
    // event.
    void (*fail)(void* context, int line, int column, const char* message);
};

// Parses `length` bytes of `text`, however many documents they hold.
__attribute__((visibility("default"))) void LabYamlParse(const char* text, size_t length,
                                                         const struct LabYamlSink* sink);
}
