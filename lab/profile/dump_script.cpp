#include "lab/profile/dump_script.h"

#include <set>
#include <vector>

#include "nodes/inter_path_table.h"
#include "nodes/node_path_table.h"

namespace lab {
namespace {

namespace tables = tarquel::node_tables;

constexpr char kHead[] = R"sh(#!/system/bin/sh
# Prints what a device profile of tarquel-lab is made of. Reads only. Best as root, on an idle phone
# after boot:
#   adb root
#   adb push dump.sh /data/local/tmp
#   adb shell sh /data/local/tmp/dump.sh > dump.txt
#   tarquel-lab profile dump.txt -o my_phone.yaml
R=$TARQUEL_ROOT
n=0

say() {
    n=$((n + 1))
    echo "$1"
}

# Some nodes may only be written, some only be seen by root. Words are split to join the lines.
show() {
    if v=$(cat "$R$1" 2>/dev/null); then
        set -f
        set -- "$1" $v
        set +f
        say "read $*"
    else
        case $(ls -d "$R$1" 2>&1) in
            "$R$1" | *ermission*) say "unreadable $1" ;;
            *) say "missing $1" ;;
        esac
    fi
}

# What there is of the paths, which are below $R already.
show_found() {
    for f in "$@"; do
        if [ -f "$f" ]; then show "${f#"$R"}"; fi
    done
}

echo "tarquel-lab dump 1"
say "kernel $(uname -r)"
for name in ro.soc.model ro.board.platform ro.product.model ro.build.type ro.logsystem.usertype; do
    v=$(getprop "$name" 2>/dev/null)
    if [ -n "$v" ]; then say "prop $name $v"; fi
done

cpus=/sys/devices/system/cpu
for f in possible present online; do show "$cpus/$f"; done
for p in "$R$cpus"/cpufreq/policy*; do
    if [ ! -d "$p" ]; then continue; fi
    for f in related_cpus scaling_available_frequencies scaling_boost_frequencies \
        cpuinfo_min_freq cpuinfo_max_freq scaling_min_freq scaling_max_freq scaling_governor; do
        show "${p#"$R"}/$f"
    done
    show_found "$p"/walt/* "$p"/schedutil/* "$p"/interactive/*
done
for c in "$R$cpus"/cpu[0-9]*; do
    if [ ! -d "$c" ]; then continue; fi
    for f in cpu_capacity online)sh";

constexpr char kTail[] = R"sh(; do
        show "${c#"$R"}/$f"
    done
done

gpu=/sys/class/kgsl/kgsl-3d0
for f in gpu_model gpu_available_frequencies freq_table_mhz default_pwrlevel num_pwrlevels \
    devfreq/available_frequencies devfreq/governor; do
    show "$gpu/$f"
done

for b in "$R$cpus"/bus_dcvs/*; do
    if [ ! -d "$b" ]; then continue; fi
    for f in available_frequencies hw_min_freq hw_max_freq; do show "${b#"$R"}/$f"; done
    for m in "$b"/*; do
        if [ ! -d "$m" ]; then continue; fi
        for f in min_freq max_freq; do show "${m#"$R"}/$f"; done
        for f in sample_ms io_percent hist_memory hyst_trigger_count hyst_length; do
            show_found "$m/$f"
        done
    done
done

show_found "$R"/proc/sys/walt/* "$R"/dev/cpuctl/*/cpu.uclamp.min "$R"/dev/cpuctl/*/cpu.uclamp.max

# The nodes of the plug-in's tables that have one path on every phone.
for f in)sh";

constexpr char kEnd[] = R"sh(; do
    show "$f"
done

echo "end $n"
)sh";

// `words` behind a "for f in", a line each.
std::string Lines(const std::set<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += " \\\n    " + word;
    return text;
}

}  // namespace

std::string DumpScript() {
    std::set<std::string> ofCpus;
    const auto addSuffixes = [&](const auto& rows) {
        for (const tarquel::ClusterNode& row : rows) ofCpus.emplace(row.suffix.substr(1));
    };
    addSuffixes(tables::kCpuinfoNodes);
    addSuffixes(tables::kCpuFreqNodes);
    addSuffixes(tables::kOnlineCoreNodes);
    std::set<std::string> fixed;
    const auto addPaths = [&](const auto& rows) {
        for (const auto& row : rows) fixed.emplace(row.path);
    };
    addPaths(tables::kGpuNodes);
    addPaths(tables::kCgroupNodes);
    addPaths(tables::kBusNodes);
    addPaths(tables::kSchedNodes);
    addPaths(tables::kGovernorNodes);
    addPaths(tarquel::kInterPaths);
    return kHead + Lines(ofCpus) + kTail + Lines(fixed) + kEnd;
}

}  // namespace lab
