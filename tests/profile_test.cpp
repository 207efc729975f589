// A device profile from a phone itself: the script on the lab's own phone laid out as files, what
// the profile made of it has, and dumps that are damaged or of other chips.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "lab/phone/phone.h"
#include "lab/profile/dump_script.h"
#include "lab/profile/profile_maker.h"
#include "lab/scenes/scene_problems.h"
#include "lab/yaml/yaml_tree.h"
#include "tests/support/lab_program.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string Words(std::vector<int64_t> numbers, int64_t factor = 1) {
    std::string text;
    for (const int64_t number : numbers) text += std::to_string(number * factor) + " ";
    return text;
}

// The phone of a device as files of a folder, gone with it.
class Files {
  public:
    explicit Files(const DeviceProfile& device)
        : mRoot(testing::TempDir() + std::to_string(getpid()) + "phone") {
        Phone phone(device);
        for (const std::string& path : phone.GetKernel().Paths()) {
            Write(path, phone.GetKernel().Value(path));
        }
        // What a kernel has beside, and the lab's phone does not need.
        const std::string cpus = "/sys/devices/system/cpu/";
        for (const CpuCluster& cluster : device.clusters) {
            const std::string policy = cpus + "cpufreq/policy" + std::to_string(cluster.firstCpu);
            std::string related;
            for (int cpu = cluster.firstCpu; cpu <= cluster.lastCpu; ++cpu) {
                related += std::to_string(cpu) + " ";
            }
            Write(policy + "/related_cpus", related);
            Write(policy + "/scaling_available_frequencies", Words(cluster.khz));
        }
        Write(cpus + "possible", "0-" + std::to_string(device.clusters.back().lastCpu));
        const std::string gpu = "/sys/class/kgsl/kgsl-3d0/";
        Write(gpu + "gpu_available_frequencies", Words(device.gpuMhz, 1'000'000));
        const auto level =
            std::find(device.gpuMhz.begin(), device.gpuMhz.end(), device.gpuInitialMhz);
        Write(gpu + "default_pwrlevel", std::to_string(level - device.gpuMhz.begin()));
        for (const BusMonitor& bus : device.buses) {
            const std::string name = bus.folder.substr(0, bus.folder.find('/'));
            if (!bus.isBandwidthMonitor) continue;
            Write(cpus + "bus_dcvs/" + name + "/available_frequencies", Words(bus.khz));
        }
    }
    ~Files() { fs::remove_all(mRoot); }

    void Write(const std::string& path, const std::string& text) const {
        fs::create_directories(fs::path(mRoot + path).parent_path());
        std::ofstream(mRoot + path) << text << "\n";
    }
    void Remove(const std::string& path) const { fs::remove_all(mRoot + path); }

    // What the script prints here.
    std::string Dump() const {
        const File script("dump.sh", DumpScript());
        FILE* pipe =
            popen(("TARQUEL_ROOT='" + mRoot + "' sh '" + script.Path() + "' 2>&1").c_str(), "r");
        std::string text;
        std::array<char, 4096> buffer{};
        for (size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
            text.append(buffer.data(), count);
        }
        EXPECT_EQ(pclose(pipe), 0);
        return text;
    }

  private:
    const std::string mRoot;
};

PhoneDump Read(const std::string& text) {
    std::istringstream in(text);
    return ReadDump(in, "dump.txt");
}

// What a dump can tell of a device.
std::string Told(const DeviceProfile& device) {
    std::string text;
    for (const CpuCluster& cluster : device.clusters) {
        text += cluster.name + " " + std::to_string(cluster.firstCpu) + "-" +
                std::to_string(cluster.lastCpu) + ": " + Words(cluster.khz) + "rtg " +
                std::to_string(cluster.rtgBoostKhz) + "\n";
    }
    text += "gpu " + Words(device.gpuMhz) + "at " + std::to_string(device.gpuInitialMhz) + "\n";
    std::vector<std::string> buses;
    for (const BusMonitor& bus : device.buses) {
        buses.push_back(bus.folder + (bus.isBandwidthMonitor ? " bwmon " : " memlat ") +
                        Words(bus.khz) + "\n");
    }
    std::sort(buses.begin(), buses.end());
    for (const std::string& bus : buses) text += bus;
    return text;
}

class ShippedDevice : public testing::TestWithParam<const char*> {};

TEST_P(ShippedDevice, IsMadeAnewOfItsPhonesDump) {
    const DeviceProfile device = LoadDeviceProfile(GetParam());
    const Files phone(device);
    const std::string text = phone.Dump();
    const PhoneDump dump = Read(text);
    EXPECT_THAT(dump.problems, IsEmpty());
    const MadeProfile made = MakeProfile(dump, "mine");
    EXPECT_EQ(Told(made.profile), Told(device));
    const DeviceProfile loaded = ReadDeviceProfile(LoadYamlText(ProfileYaml(made, dump), "y"));
    EXPECT_EQ(Told(loaded), Told(device));
    EXPECT_EQ(loaded.name, "mine");

    // As adb gives it from some phones, between other words.
    std::string carriage = "* daemon started successfully\n";
    for (const char letter : text) carriage += letter == '\n' ? "\r\n" : std::string(1, letter);
    const PhoneDump again = Read(carriage + "\r\n$ \r\n");
    EXPECT_THAT(again.problems, IsEmpty());
    EXPECT_EQ(Told(MakeProfile(again, "").profile), Told(device));

    std::set<std::string> lacking;
    for (const LackingNodes& one : FindLackingNodes(dump, device)) {
        EXPECT_FALSE(one.paths.contains(PhoneDump::State::kUntold)) << one.name;
        EXPECT_FALSE(one.paths.contains(PhoneDump::State::kUnreadable)) << one.name;
        lacking.insert(one.name);
    }
    EXPECT_EQ(lacking.count("llcc_bw_min"), device.buses.size() == 2 ? 1u : 0u);
    EXPECT_EQ(lacking.count("go_hispeed_load_l"), 1u);
    EXPECT_EQ(lacking.count("big_max"), 0u);
    EXPECT_EQ(lacking.count("little_cores_max"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Devices, ShippedDevice, testing::Values("sm8450", "sm4450"));

TEST(PhoneDump, GuessesAndSaysWhatThePhoneDoesNotTell) {
    const Files phone(LoadDeviceProfile("sm8450"));
    const std::string policy = "/sys/devices/system/cpu/cpufreq/policy4/";
    phone.Remove(policy + "scaling_available_frequencies");
    phone.Remove("/sys/class/kgsl");
    phone.Remove("/sys/devices/system/cpu/bus_dcvs");
    phone.Remove("/proc/sys/walt");
    phone.Write("/sys/devices/system/cpu/cpufreq/policy0/scaling_boost_frequencies", "1900800");
    const PhoneDump dump = Read(phone.Dump());
    const MadeProfile made = MakeProfile(dump, "");
    EXPECT_EQ(made.profile.name, "my_phone");
    EXPECT_THAT(made.profile.clusters[1].khz, ElementsAre(633600, 2496000));
    EXPECT_EQ(made.profile.clusters[0].khz.back(), 1900800);
    EXPECT_THAT(made.profile.buses, IsEmpty());
    std::vector<std::string> fields;
    for (const auto& [field, why] : made.guesses) fields.push_back(field);
    EXPECT_THAT(fields, ElementsAre("big khz", "gpu initial_mhz", "gpu mhz"));
    const std::string yaml = ProfileYaml(made, dump);
    EXPECT_THAT(yaml, HasSubstr("# a guess: the dump tells nothing of the GPU"));
    EXPECT_EQ(Told(ReadDeviceProfile(LoadYamlText(yaml, "y"))), Told(made.profile));
}

// What a short dump comes to: the clusters by name, or a part of the refusal.
struct Chip {
    const char* name;
    const char* policies;  // "CPUS:CAPACITY,..." of each
    const char* clusters;
    const char* note;  // a part of a guess or a note; "" for none
};

void PrintTo(const Chip& chip, std::ostream* out) {
    *out << chip.name;
}

class DumpOfChip : public testing::TestWithParam<Chip> {};

TEST_P(DumpOfChip, NamesItsClustersAndSaysWhatThePluginMakesOfThem) {
    std::ostringstream text;
    text << "tarquel-lab dump 1\nread /sys/devices/system/cpu/possible 0-7\n";
    int lines = 1;
    std::istringstream policies(GetParam().policies);
    for (std::string one; policies >> one; lines += 4) {
        const std::string cpus = one.substr(0, one.find(':'));
        const std::string first = cpus.substr(0, cpus.find_first_of("-,"));
        const std::string policy = "/sys/devices/system/cpu/cpufreq/policy" + first;
        text << "read " << policy << "/related_cpus " << cpus << "\nread " << policy
             << "/scaling_available_frequencies 300000 600000\nread /sys/devices/system/cpu/cpu"
             << first << "/cpu_capacity " << one.substr(one.find(':') + 1)
             << "\nread /sys/class/kgsl/kgsl-3d0/freq_table_mhz 800 300\n";
    }
    text << "read /sys/class/kgsl/kgsl-3d0/default_pwrlevel 1\nend " << lines + 1 << "\n";
    const PhoneDump dump = Read(text.str());
    EXPECT_THAT(dump.problems, IsEmpty());
    std::string clusters;
    std::string notes;
    try {
        const MadeProfile made = MakeProfile(dump, "");
        for (const CpuCluster& cluster : made.profile.clusters) {
            clusters += (clusters.empty() ? "" : " ") + cluster.name + "=" +
                        std::to_string(cluster.firstCpu) + "-" + std::to_string(cluster.lastCpu);
        }
        for (const auto& [field, why] : made.guesses) notes += field + ": " + why + "\n";
        for (const std::string& note : ClusterNotes(made.profile)) notes += note + "\n";
        ReadDeviceProfile(LoadYamlText(ProfileYaml(made, dump), "y"));
    } catch (const InputError& error) {
        clusters = error.what();
    }
    EXPECT_THAT(clusters, HasSubstr(GetParam().clusters));
    EXPECT_THAT(notes, HasSubstr(GetParam().note));
    EXPECT_EQ(notes.empty(), std::string(GetParam().note).empty()) << notes;
}

INSTANTIATE_TEST_SUITE_P(
    Chips, DumpOfChip,
    testing::Values(
        Chip{"Two", "0-5:400 6-7:1024", "little=0-5 big=6-7", ""},
        Chip{"Three", "0-3:300 4-6:800 7:1024", "little=0-3 big=4-6 prime=7-7", ""},
        Chip{"Four", "0-1:300 2-4:800 5-6:780 7:1024", "little=0-1 big=2-4 other2=5-6 prime=7-7",
             "CPUs 5-6 (other2) are in none of the clusters that the plug-in knows"},
        Chip{"WideSecond", "0-1:300 2-3:800 4-6:780 7:1024",
             "little=0-1 other1=2-3 big=4-6 prime=7-7", "the widest"},
        Chip{"One", "0-7:1024", "little=0-7", "has no big cluster: unless a scene file's big_cpu"},
        Chip{"NoLittle", "0-5:800 6-7:1024", "little=0-5 big=6-7",
             "78 % of the last cluster's capacity and are none of the little kind"},
        Chip{"Offline", "0-3:300 7:1024", "CPU 4 is in no policy: were its cluster's CPUs off", ""},
        Chip{"LastOffline", "0-3:300 4-6:800", "CPU 7 is in no policy: was its cluster off", ""},
        Chip{"NoRange", "0,2:300 4-7:800", "the CPUs of policy0 are no range: 0 2", ""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(PhoneDump, NamesWhatIsDamagedAndRefusesWhatIsNone) {
    const std::string node = "read /sys/devices/system/cpu/cpufreq/policy0/";
    const std::string whole = "tarquel-lab dump 1\n" + node + "related_cpus 0 1\n" + node +
                              "scaling_available_frequencies 300000 600000\n";
    EXPECT_THAT(Read(whole + "end 2\n").problems, IsEmpty());
    for (const char* torn : {"", "read /sys/x 12"}) {
        const PhoneDump dump = Read(whole + torn);
        EXPECT_THAT(dump.problems, ElementsAre(testing::EndsWith(": its end is missing")));
        EXPECT_EQ(dump.nodes.size(), 2u);
    }
    EXPECT_THAT(
        Read(whole + "rea\x01 /sys/x 1\nend 3\n").problems,
        ElementsAre("dump.txt:4: this is no line of a dump, and is passed over: rea? /sys/x 1",
                    "dump.txt: the phone printed 3 lines, of which 2 are here"));
    EXPECT_THAT(Read("tarquel-lab dump 1\nend 0\n" + whole + "end 2\n").problems, IsEmpty());
    // A number that is none leaves the cluster without a table, which is told.
    const std::string torn = "tarquel-lab dump 1\n" + node + "related_cpus 0 1\n" + node +
                             "scaling_available_frequencies 3000x0 600000\nend 2\n";
    EXPECT_THROW(MakeProfile(Read(torn), ""), InputError);
    for (const char* none :
         {"", "hello\n", "tarquel-lab dump 1\n", "tarquel-lab dump 1\nend 0\n"}) {
        EXPECT_THROW(Read(none), InputError) << none;
    }
    EXPECT_THROW(MakeProfile(Read("tarquel-lab dump 1\nmissing /sys/x\nend 1\n"), ""), InputError);
}

TEST(ProfileProgram, MakesAProfileThatThePhoneOfTheLabRuns) {
    const Files phone(LoadDeviceProfile("sm4450"));
    const File dump("dump.txt", phone.Dump());
    const std::string yaml = dump.Path() + ".yaml";
    const Ran made = RunLab("profile " + dump.Path() + " --name mine -o " + yaml);
    EXPECT_EQ(made.code, 0) << made.errors;
    EXPECT_THAT(made.out, HasSubstr("missing     llcc_bw_min (81)"));
    const Ran ran = RunLab("run -q --device " + yaml + " --scenes sm4450 shared_limits");
    EXPECT_EQ(ran.code, 0) << ran.errors;
    EXPECT_EQ(ran.errors, "");
    EXPECT_THAT(ran.out, HasSubstr("device mine,"));
    fs::remove(yaml);

    const Ran twice = RunLab("profile --script " + dump.Path());
    EXPECT_EQ(twice.code, 2);
    EXPECT_EQ(RunLab("profile").code, 2);
    const Ran over = RunLab("profile " + dump.Path() + " -o " + dump.Path());
    EXPECT_EQ(over.code, 2);
    EXPECT_THAT(over.errors, HasSubstr("this is the dump that is read"));
    EXPECT_EQ(RunLab("profile --script | sh -n").code, 0);
}

}  // namespace
}  // namespace lab
