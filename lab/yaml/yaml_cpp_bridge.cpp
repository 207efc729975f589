#include "lab/yaml/yaml_cpp_bridge.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <exception>
#include <sstream>
#include <string>
#include <string_view>

namespace {

// yaml-cpp counts from 0, and marks what has no place with -1.
int Line(const YAML::Mark& mark) {
    return mark.is_null() ? 0 : mark.line + 1;
}
int Column(const YAML::Mark& mark) {
    return mark.is_null() ? 0 : mark.column + 1;
}

// yaml-cpp says of such a line that something is illegal in it, but not what.
bool IsIndentedByTab(std::string_view text, const YAML::Mark& mark) {
    if (mark.is_null() || mark.pos < 0 || static_cast<size_t>(mark.pos) > text.size()) return false;
    const size_t before = text.substr(0, static_cast<size_t>(mark.pos)).rfind('\n');
    const std::string_view line = text.substr(before == text.npos ? 0 : before + 1);
    return line.substr(0, line.find_first_not_of(" \t")).find('\t') != line.npos;
}

class Forwarder : public YAML::EventHandler {
  public:
    explicit Forwarder(const LabYamlSink& sink) : mSink(sink) {}

    // A character that begins nothing, such as a comma, is a document without content to yaml-cpp,
    // and the next one too: it never passes it.
    void OnDocumentStart(const YAML::Mark& mark) override {
        if (mHasBegun && mark.pos == mLastStart) {
            throw YAML::ParserException(mark, "this character begins nothing here");
        }
        mHasBegun = true;
        mLastStart = mark.pos;
        mSink.document(mSink.context, Line(mark), Column(mark));
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        RefuseAnchor(mark, anchor);
        mSink.null(mSink.context, Line(mark), Column(mark));
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override { RefuseAnchor(mark, 1); }
    void OnScalar(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                  const std::string& value) override {
        RefuseAnchor(mark, anchor);
        mSink.scalar(mSink.context, Line(mark), Column(mark), value.data(), value.size());
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value) override {
        RefuseAnchor(mark, anchor);
        mSink.listBegin(mSink.context, Line(mark), Column(mark));
    }
    void OnSequenceEnd() override { mSink.listEnd(mSink.context); }
    void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value) override {
        RefuseAnchor(mark, anchor);
        mSink.mapBegin(mSink.context, Line(mark), Column(mark));
    }
    void OnMapEnd() override { mSink.mapEnd(mSink.context); }

  private:
    static void RefuseAnchor(const YAML::Mark& mark, YAML::anchor_t anchor) {
        if (anchor == YAML::NullAnchor) return;
        throw YAML::ParserException(mark, "anchors and aliases are not used here; write it out");
    }

    const LabYamlSink& mSink;
    bool mHasBegun = false;
    int mLastStart = 0;
};

}  // namespace

void LabYamlParse(const char* text, size_t length, const LabYamlSink* sink) {
    try {
        std::istringstream input(std::string(text, length));
        YAML::Parser parser(input);
        Forwarder forwarder(*sink);
        while (parser.HandleNextDocument(forwarder)) continue;
    } catch (const YAML::Exception& e) {
        const bool isTab = IsIndentedByTab(std::string_view(text, length), e.mark);
        sink->fail(sink->context, Line(e.mark), Column(e.mark),
                   isTab ? "a tab indents this line; YAML takes blanks alone" : e.msg.c_str());
    } catch (const std::exception& e) {
        sink->fail(sink->context, 0, 0, e.what());
    }
}
