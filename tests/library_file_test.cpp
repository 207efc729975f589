// The library as a file: what it exports and takes from others, and how it is linked. Both the
// built and the installed file are looked at; TARQUEL_LIBRARY_FILE in the environment names another
// one, such as one that was built for Android.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/support/elf_file.h"

namespace {

struct Library {
    const char* name;
    std::string path;
};

std::vector<Library> Libraries() {
    if (const char* other = std::getenv("TARQUEL_LIBRARY_FILE")) return {{"Named", other}};
    return {{"Built", TARQUEL_BUILT_LIBRARY}, {"Installed", TARQUEL_INSTALLED_LIBRARY}};
}

// What a test's name ends with.
void PrintTo(const Library& library, std::ostream* text) {
    *text << library.name;
}

class LibraryFile : public testing::TestWithParam<Library> {
  protected:
    void SetUp() override { ASSERT_TRUE(mFile.IsSharedLibrary()) << GetParam().path; }

    const ElfFile mFile{GetParam().path};
};

INSTANTIATE_TEST_SUITE_P(, LibraryFile, testing::ValuesIn(Libraries()),
                         testing::PrintToStringParamName());

// The lines of a list in the tests' folder, less its comments.
std::vector<std::string> Listed(const std::string& name) {
    std::ifstream list(TARQUEL_TESTS_FOLDER "/" + name);
    std::vector<std::string> names;
    for (std::string line; std::getline(list, line);) {
        line.erase(std::min(line.find(" #"), line.size()));
        if (!line.empty() && line[0] != '#') names.push_back(line);
    }
    return names;
}

// A * at the end of a listed name stands for anything.
bool Matches(const std::string& listed, const std::string& name) {
    const size_t star = listed.find('*');
    return star == std::string::npos ? name == listed : name.compare(0, star, listed, 0, star) == 0;
}

}  // namespace

TEST_P(LibraryFile, ExportsWhatTheServerFindsAndNothingElse) {
    std::set<std::string> exported = mFile.DefinedSymbols();
    for (const std::string& wanted : Listed("exports.txt")) {
        const auto found =
            std::find_if(exported.begin(), exported.end(),
                         [&wanted](const std::string& name) { return Matches(wanted, name); });
        ASSERT_NE(found, exported.end()) << wanted << " is missing";
        exported.erase(found);
    }
    EXPECT_TRUE(exported.empty()) << "not in exports.txt: " << *exported.begin();
}

// Sanitizers add symbols of their own, and register every source's globals at load time.
#ifndef TARQUEL_SANITIZED
TEST_P(LibraryFile, TakesFromOthersWhatAPhoneHas) {
    const std::vector<std::string> listed = Listed("imports.txt");
    for (const std::string& name : mFile.UndefinedSymbols()) {
        const bool isListed =
            std::any_of(listed.begin(), listed.end(),
                        [&name](const std::string& row) { return Matches(row, name); });
        EXPECT_TRUE(isListed) << name << " is not in imports.txt; add it if Android has it";
    }
}

TEST_P(LibraryFile, RunsNoCodeOfItsOwnWhenItIsLoaded) {
    constexpr size_t kCompilersOwn = 1;
    for (const Elf64_Shdr& section : mFile.Sections(SHT_INIT_ARRAY)) {
        EXPECT_LE(section.sh_size / sizeof(void*), kCompilersOwn);
    }
}

TEST_P(LibraryFile, NeedsThePlatformAndTheStandardLibraryAlone) {
    const std::vector<std::string> allowed{"liblog.so*",    "libcutils.so*", "libutils.so*",
                                           "libc.so*",      "libm.so*",      "libdl.so*",
                                           "libstdc++.so*", "libc++.so*",    "libc++abi.so*",
                                           "libgcc_s.so*",  "libunwind.so*", "ld-linux-*"};
    for (const std::string& needed : mFile.DynamicStrings(DT_NEEDED)) {
        EXPECT_TRUE(std::any_of(allowed.begin(), allowed.end(), [&needed](const std::string& row) {
            return Matches(row, needed);
        })) << needed;
    }
}
#endif

TEST_P(LibraryFile, IsFoundByItsNameAlone) {
    EXPECT_EQ(mFile.DynamicStrings(DT_SONAME), std::vector<std::string>{"libtarquel_qcom.so"});
    EXPECT_TRUE(mFile.DynamicStrings(DT_RPATH).empty());
    // In the build folder a run path leads to the platform's libraries of this machine.
    if (GetParam().path == TARQUEL_BUILT_LIBRARY) return;
    EXPECT_TRUE(mFile.DynamicStrings(DT_RUNPATH).empty());
}

TEST_P(LibraryFile, HasNoMemoryThatIsBothWritableAndExecutable) {
    bool saysStack = false;
    for (const Elf64_Phdr& segment : mFile.Segments()) {
        const bool isLoaded = segment.p_type == PT_LOAD || segment.p_type == PT_GNU_STACK;
        const bool isBoth = (segment.p_flags & (PF_W | PF_X)) == (PF_W | PF_X);
        EXPECT_FALSE(isLoaded && isBoth) << "segment type " << segment.p_type;
        if (segment.p_type == PT_GNU_STACK) saysStack = true;
    }
    EXPECT_TRUE(saysStack) << "without PT_GNU_STACK the stack is executable";
    // Relocations in code would make it writable for a while.
    EXPECT_TRUE(mFile.Dynamic(DT_TEXTREL).empty());
    EXPECT_EQ(mFile.DynamicFlags(DT_FLAGS) & DF_TEXTREL, 0u);
}

TEST_P(LibraryFile, BindsAtLoadTimeAndLocksItsTables) {
    const bool bindsNow = (mFile.DynamicFlags(DT_FLAGS) & DF_BIND_NOW) != 0 ||
                          (mFile.DynamicFlags(DT_FLAGS_1) & DF_1_NOW) != 0;
    EXPECT_TRUE(bindsNow);
    // What the loader makes read-only afterwards: the offset table and the dynamic section.
    const auto segments = mFile.Segments();
    const auto locked = std::find_if(segments.begin(), segments.end(), [](const Elf64_Phdr& each) {
        return each.p_type == PT_GNU_RELRO;
    });
    ASSERT_NE(locked, segments.end());
    const auto isLocked = [&locked](uint64_t address) {
        return address >= locked->p_vaddr && address < locked->p_vaddr + locked->p_memsz;
    };
    EXPECT_TRUE(isLocked(mFile.Sections(SHT_DYNAMIC).at(0).sh_addr));
    for (const uint64_t offsetTable : mFile.Dynamic(DT_PLTGOT)) EXPECT_TRUE(isLocked(offsetTable));
}

// A timer that fires late must find its code, whatever the server closed meanwhile.
TEST_P(LibraryFile, StaysMapped) {
    EXPECT_NE(mFile.DynamicFlags(DT_FLAGS_1) & DF_1_NODELETE, 0u);
}

TEST_P(LibraryFile, GuardsItsStackFrames) {
    EXPECT_EQ(mFile.UndefinedSymbols().count("__stack_chk_fail"), 1u);
}
