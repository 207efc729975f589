// The library as a file: what it exports, and how it is linked.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/support/plugin_test.h"

namespace {

// A 64-bit ELF file, read whole.
class ElfFile {
  public:
    explicit ElfFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        mBytes.assign(std::istreambuf_iterator<char>(file), {});
    }

    Elf64_Ehdr Header() const { return At<Elf64_Ehdr>(0); }

    std::vector<Elf64_Phdr> Segments() const {
        return Table<Elf64_Phdr>(Header().e_phoff, Header().e_phnum);
    }

    std::vector<Elf64_Shdr> Sections(uint32_t type) const {
        std::vector<Elf64_Shdr> found;
        for (const auto& section : Table<Elf64_Shdr>(Header().e_shoff, Header().e_shnum)) {
            if (section.sh_type == type) found.push_back(section);
        }
        return found;
    }

    std::set<std::string> DefinedSymbols() const {
        std::set<std::string> names;
        const auto sections = Table<Elf64_Shdr>(Header().e_shoff, Header().e_shnum);
        for (const Elf64_Shdr& section : Sections(SHT_DYNSYM)) {
            const Elf64_Shdr& strings = sections[section.sh_link];
            for (const auto& symbol :
                 Table<Elf64_Sym>(section.sh_offset, section.sh_size / sizeof(Elf64_Sym))) {
                if (symbol.st_shndx == SHN_UNDEF) continue;
                names.insert(mBytes.data() + strings.sh_offset + symbol.st_name);
            }
        }
        return names;
    }

    // The values of a dynamic tag.
    std::vector<uint64_t> Dynamic(int64_t tag) const {
        std::vector<uint64_t> values;
        for (const Elf64_Shdr& section : Sections(SHT_DYNAMIC)) {
            for (const auto& entry :
                 Table<Elf64_Dyn>(section.sh_offset, section.sh_size / sizeof(Elf64_Dyn))) {
                if (entry.d_tag == tag) values.push_back(entry.d_un.d_val);
            }
        }
        return values;
    }

  private:
    template <typename T>
    T At(size_t offset) const {
        T value;
        std::memcpy(&value, mBytes.data() + offset, sizeof(T));
        return value;
    }

    template <typename T>
    std::vector<T> Table(size_t offset, size_t count) const {
        std::vector<T> rows(count);
        std::memcpy(rows.data(), mBytes.data() + offset, count * sizeof(T));
        return rows;
    }

    std::vector<char> mBytes;
};

class LibraryFile : public PluginTest {
  protected:
    void SetUp() override { Boot(); }
    ElfFile File() const { return ElfFile(GetLibrary().File()); }
};

// The lines of exports.txt.
std::vector<std::string> ListedExports() {
    std::ifstream list(TARQUEL_EXPORTS_LIST);
    std::vector<std::string> names;
    for (std::string line; std::getline(list, line);) {
        if (!line.empty() && line[0] != '#') names.push_back(line);
    }
    return names;
}

}  // namespace

TEST_F(LibraryFile, ExportsWhatTheServerFindsAndNothingElse) {
    std::set<std::string> exported = File().DefinedSymbols();
    for (const std::string& wanted : ListedExports()) {
        // A trailing * stands for parameter types of the standard library.
        const size_t star = wanted.find('*');
        const std::string prefix = wanted.substr(0, star);
        const auto found = exported.lower_bound(prefix);
        ASSERT_NE(found, exported.end()) << wanted;
        const bool matches =
            star == std::string::npos ? *found == wanted : found->compare(0, star, prefix) == 0;
        EXPECT_TRUE(matches) << wanted << " is missing";
        exported.erase(found);
    }
    EXPECT_TRUE(exported.empty()) << "not in exports.txt: " << *exported.begin();
}

// A sanitizer registers every source's globals when the library is loaded.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LibraryFile, RunsNoCodeOfItsOwnWhenItIsLoaded) {
    constexpr size_t kCompilersOwn = 1;
    for (const Elf64_Shdr& section : File().Sections(SHT_INIT_ARRAY)) {
        EXPECT_LE(section.sh_size / sizeof(void*), kCompilersOwn);
    }
}
#endif

TEST_F(LibraryFile, IsLinkedAgainstTampering) {
    const ElfFile file = File();
    bool hasRelro = false;
    for (const Elf64_Phdr& segment : file.Segments()) {
        if (segment.p_type == PT_GNU_RELRO) hasRelro = true;
        if (segment.p_type == PT_GNU_STACK) {
            EXPECT_EQ(segment.p_flags & PF_X, 0u);
        }
        const bool isWritableCode = (segment.p_flags & (PF_W | PF_X)) == (PF_W | PF_X);
        EXPECT_FALSE(segment.p_type == PT_LOAD && isWritableCode);
    }
    EXPECT_TRUE(hasRelro);
    const auto flags = file.Dynamic(DT_FLAGS_1);
    ASSERT_EQ(flags.size(), 1u);
    EXPECT_NE(flags[0] & DF_1_NOW, 0u);
    EXPECT_TRUE(file.Dynamic(DT_TEXTREL).empty());
}
