#include "lab/machine/hardware.h"

#include <fmt/format.h>

#include <stdexcept>

namespace lab {

namespace {

// The layout of a frequency domain's registers, as the driver qcom-cpufreq-hw reads them.
constexpr size_t kPageSize = 0x1000;
constexpr size_t kEnable = 0x000;
constexpr size_t kFrequencies = 0x100;
constexpr size_t kVoltages = 0x200;
constexpr size_t kEntries = 40;
constexpr int64_t kOscillatorKhz = 19'200;
constexpr uint32_t kFromPll = 1U << 30;
constexpr uint32_t kCoreCount = 4U << 16;  // 1 would mark a turbo step
constexpr int64_t kHighestFactor = 0xff;

// Memory that the kernel is told not to touch, below the end of the machine's 1 GB.
constexpr uint64_t kRegisters = 0x7f00'0000;

void Put(std::string& page, size_t offset, uint32_t word) {
    for (size_t i = 0; i < sizeof(word); ++i) {
        page[offset + i] = static_cast<char>(word >> (8 * i) & 0xff);
    }
}

std::string RegistersOf(const CpuCluster& cluster) {
    if (cluster.khz.size() > kEntries) {
        throw std::runtime_error(fmt::format("the cluster '{}' has {} frequencies, {} is the most",
                                             cluster.name, cluster.khz.size(), kEntries));
    }
    std::string page(kPageSize, '\0');
    Put(page, kEnable, 1);
    for (size_t i = 0; i < kEntries; ++i) {
        // The table ends where an entry comes a second time.
        const int64_t khz = i < cluster.khz.size() ? cluster.khz[i] : cluster.khz.back();
        const int64_t factor = khz / kOscillatorKhz;
        if (khz % kOscillatorKhz != 0 || factor > kHighestFactor) {
            throw std::runtime_error(
                fmt::format("{} kHz of the cluster '{}' is no multiple of {} up to {}", khz,
                            cluster.name, kOscillatorKhz, kHighestFactor * kOscillatorKhz));
        }
        Put(page, kFrequencies + 4 * i, kFromPll | kCoreCount | static_cast<uint32_t>(factor));
        const auto index = static_cast<uint32_t>(i);
        Put(page, kVoltages + 4 * i, index << 16 | (600 + 10 * index));
    }
    return page;
}

std::string DomainsOfCpus(const DeviceProfile& profile) {
    std::string text;
    for (size_t domain = 0; domain < profile.clusters.size(); ++domain) {
        const CpuCluster& cluster = profile.clusters[domain];
        for (int cpu = cluster.firstCpu; cpu <= cluster.lastCpu; ++cpu) {
            text += fmt::format(
                "&{{/cpus/cpu@{:x}}} {{ qcom,freq-domain = <&lab_cpufreq {}>; }};\n", cpu, domain);
        }
    }
    return text;
}

std::string StepsOfGpu(const DeviceProfile& profile) {
    std::string text;
    for (const int64_t mhz : profile.gpuMhz) {
        const int64_t hz = mhz * 1'000'000;
        text += fmt::format("        opp-{0} {{ opp-hz = /bits/ 64 <{0}>; }};\n", hz);
    }
    return text;
}

}  // namespace

Hardware MakeHardware(const DeviceProfile& profile) {
    Hardware hardware;
    std::string pages;
    std::string names;
    for (size_t domain = 0; domain < profile.clusters.size(); ++domain) {
        const uint64_t address = kRegisters + domain * kPageSize;
        hardware.registers.push_back({address, RegistersOf(profile.clusters[domain])});
        pages += fmt::format("{}<0 {:#x} 0 {:#x}>", domain == 0 ? "" : ", ", address, kPageSize);
        names += fmt::format("{}\"freq-domain{}\"", domain == 0 ? "" : ", ", domain);
    }
    hardware.deviceTree = fmt::format(
        R"(
/ {{
    reserved-memory {{
        #address-cells = <2>;
        #size-cells = <2>;
        ranges;
        lab-registers@{0:x} {{ reg = <0 {0:#x} 0 {1:#x}>; no-map; }};
    }};
    lab_oscillator: lab-oscillator {{
        compatible = "fixed-clock";
        #clock-cells = <0>;
        clock-frequency = <{2}>;
    }};
    lab_pll: lab-pll {{
        compatible = "fixed-clock";
        #clock-cells = <0>;
        clock-frequency = <600000000>;
    }};
    lab_gpu_clock: lab-gpu-clock {{
        compatible = "fixed-clock";
        #clock-cells = <0>;
        clock-frequency = <{3}>;
    }};
    lab_cpufreq: cpufreq@{0:x} {{
        compatible = "qcom,sm8450-cpufreq-epss", "qcom,cpufreq-epss";
        reg = {4};
        reg-names = {5};
        clocks = <&lab_oscillator>, <&lab_pll>;
        clock-names = "xo", "alternate";
        #freq-domain-cells = <1>;
    }};
    lab_gpu_steps: lab-gpu-steps {{
        compatible = "operating-points-v2";
{6}    }};
    lab-gpu {{
        compatible = "fsl,imx8mm-noc", "fsl,imx8m-noc";
        clocks = <&lab_gpu_clock>;
        operating-points-v2 = <&lab_gpu_steps>;
    }};
}};
{7})",
        kRegisters, profile.clusters.size() * kPageSize, kOscillatorKhz * 1000,
        profile.gpuInitialMhz * 1'000'000, pages, names, StepsOfGpu(profile),
        DomainsOfCpus(profile));
    return hardware;
}

}  // namespace lab
