// tarquel-machine: the lab on a machine whose kernel has the device's frequency hardware.
//   hardware  on the desk: what a virtual machine needs to have it
//   play      on that machine: plays scenarios and lists of writes, and compares the machine's
//             nodes with the model's
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <sstream>

#include "lab/machine/hardware.h"
#include "lab/machine/machine.h"
#include "lab/machine/single_writes.h"
#include "lab/server/inputs.h"
#include "lab/server/runner.h"

namespace lab {
namespace {

constexpr int kCannotRun = 2;

void WriteFile(const std::string& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
    if (!std::ifstream(file)) throw std::runtime_error(file + " cannot be written");
}

// Files for QEMU in `folder`: what to append to the device tree, and the registers with a list of
// their addresses.
void WriteHardware(const std::string& device, const std::string& folder) {
    const DeviceProfile profile = LoadDeviceProfile(device);
    const Hardware hardware = MakeHardware(profile);
    WriteFile(folder + "/hardware.dtsi", hardware.deviceTree);
    std::string list;
    for (const MemoryImage& image : hardware.registers) {
        const std::string file = fmt::format("{}/{:x}.bin", folder, image.address);
        WriteFile(file, image.bytes);
        list += fmt::format("{:#x} {}\n", image.address, file);
    }
    WriteFile(folder + "/registers.txt", list);
    WriteFile(folder + "/cpus.txt", std::to_string(profile.clusters.back().lastCpu + 1) + "\n");
}

struct PlayOptions {
    std::string device;
    std::string kernel;
    std::string library;
    std::vector<std::string> files;
    std::vector<std::string> writes;
};

class Session {
  public:
    Session(const PlayOptions& options, Machine& machine)
        : mOptions(options), mMachine(machine), mDevice(LoadDeviceProfile(options.device)) {}

    void Play(const std::string& file) {
        const auto begin = std::chrono::steady_clock::now();
        const Machine::Counts before = mMachine.Count();
        const YamlNode root = LoadYamlFile(file);
        if (IsWriteList(root)) {
            PlayList(ReadWriteList(root));
        } else {
            PlayScenario(root, file);
        }
        const Machine::Counts& after = mMachine.Count();
        const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
        std::cout << fmt::format(
                         "{}: {} writes to the machine, {} comparisons, {} differences, "
                         "{:.1f} s\n",
                         file, after.writes - before.writes, after.comparisons - before.comparisons,
                         after.differences - before.differences, lasted.count())
                  << std::flush;
    }

    void PlayList(const WriteList& list) {
        Phone phone(mDevice, {.nodes = OfMachine()});
        PlayWrites(list, mMachine, phone, mDevice);
    }

  private:
    NodeLayout OfMachine() {
        return [this](const DeviceProfile& profile) { return mMachine.LayOut(profile); };
    }

    // Findings are differences, too, unless the model of this very kernel has the same.
    void PlayScenario(const YamlNode& root, const std::string& file) {
        const std::vector<std::string> found = FindingsOf(root, OfMachine(), true);
        if (found.empty()) return;
        const std::vector<std::string> models = FindingsOf(
            root, [this](const DeviceProfile& profile) { return mMachine.LayOutModel(profile); },
            false);
        const auto lacks = [](const std::vector<std::string>& findings,
                              const std::string& finding) {
            return std::find(findings.begin(), findings.end(), finding) == findings.end();
        };
        for (const std::string& finding : found) {
            if (lacks(models, finding)) mMachine.Differ("a finding of " + file, finding, "none");
        }
        for (const std::string& finding : models) {
            if (lacks(found, finding)) mMachine.Differ("a finding of " + file, "none", finding);
        }
        if (found == models) {
            std::cout << fmt::format("  {} findings, as the model with this kernel's rules has:\n",
                                     found.size());
            for (const std::string& finding : found) std::cout << "    " << finding << "\n";
        }
    }

    static std::string WhereIn(const std::string& file) {
        Phone* const phone = Phone::Current();
        if (phone == nullptr) return file + ", at the start";
        const std::chrono::duration<double> now = phone->GetClock().Now();
        return fmt::format("{}, at {:.3f} s", file, now.count());
    }

    std::vector<std::string> FindingsOf(const YamlNode& root, const NodeLayout& nodes,
                                        bool isMachines) {
        ScenarioHead head = ReadScenarioHead(root);
        const Instead instead{mOptions.device, ""};
        SceneFile scenes = SceneFile::Load(ScenesOfScenario(instead, head, mDevice));
        const std::vector<Step> steps = ReadScenarioSteps(root, scenes);
        if (isMachines) mMachine.Begin([file = head.file] { return WhereIn(file); });
        Phone phone(mDevice, {.nodes = nodes});
        Book book(mDevice, scenes, phone.GetKernel());
        Library library(mOptions.library);
        Server server(phone, library, scenes);
        Runner runner({phone, server, book, mDevice, scenes}, [](const Event&) {});
        runner.Start(head);
        runner.Play(steps);
        runner.Finish();
        if (isMachines) mMachine.CompareAll("the last step");
        std::vector<std::string> findings;
        for (RunFinding& finding : book.Findings()) findings.push_back(std::move(finding.text));
        return findings;
    }

    const PlayOptions& mOptions;
    Machine& mMachine;
    const DeviceProfile mDevice;
};

int Play(const PlayOptions& options) {
    Machine machine(ReadKernelUnderTest(LoadYamlFile(options.kernel)), std::cout);
    Session session(options, machine);
    if (!options.writes.empty()) {
        WriteList given{"--write", {{"as given", "", {}}}};
        for (const std::string& write : options.writes) {
            given.cases.front().writes.push_back(ParseSingleWrite(write));
        }
        session.PlayList(given);
    }
    for (const std::string& file : options.files) session.Play(file);
    const Machine::Counts& counts = machine.Count();
    std::cout << fmt::format(
                     "{}: {} nodes of the machine, {} writes, {} comparisons, "
                     "{} differences\n",
                     options.device, counts.nodes, counts.writes, counts.comparisons,
                     counts.differences)
              << std::flush;
    return counts.differences == 0 ? 0 : 1;
}

int Run(int argc, char** argv) {
    CLI::App app("The lab on a machine that has a device's frequency hardware.");
    app.require_subcommand(1);
    std::string device;
    std::string folder;
    CLI::App* const hardware =
        app.add_subcommand("hardware", "Writes what a virtual machine needs to be that device.");
    hardware->add_option("device", device, "A shipped name or a YAML file")->required();
    hardware->add_option("folder", folder, "Where to; it exists")->required();
    PlayOptions options;
    CLI::App* const play = app.add_subcommand(
        "play", "Plays files and compares the machine's nodes with the model's.");
    play->add_option("file", options.files, "Scenarios and lists of writes");
    play->add_option("--device", options.device, "The device that this machine is")->required();
    play->add_option("--kernel", options.kernel, "What is known of its kernel")->required();
    play->add_option("--write", options.writes, "A single write, NODE=TEXT; several in order");
    play->add_option("--library", options.library, "The plug-in");
    CLI11_PARSE(app, argc, argv);
    if (hardware->parsed()) {
        WriteHardware(device, folder);
        return 0;
    }
    return Play(options);
}

}  // namespace
}  // namespace lab

int main(int argc, char** argv) {
    try {
        return lab::Run(argc, argv);
    } catch (const std::exception& error) {
        std::cout << std::flush;
        std::cerr << "tarquel-machine: " << error.what() << "\n";
        return lab::kCannotRun;
    }
}
