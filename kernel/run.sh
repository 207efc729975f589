#!/usr/bin/env bash
# Plays scenarios and lists of writes on a real kernel in QEMU that has a device's frequency
# hardware, and compares it with the lab's model. `./dev test kernel` builds what is needed and calls
# this; docs/kernel.md tells more.
#
#   kernel/run.sh [--own|--phones] [--device NAME|FILE]... [--write NODE=TEXT]... [--program FILE] [FILE...]
#
# Without a device both shipped ones, without a file or write kernel/writes.yaml and every shipped
# scenario. Exits with 0 when nothing differs, 1 for differences, 2 when it cannot run.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/kernel
kernel=stock
knowledge=kernel/linux-6.1.yaml
program=build/aarch64/bin/tarquel-machine
devices=()
writes=()
files=()
# Seconds for a boot and all that is played; generous, for it is there to end what hangs.
patience=${TARQUEL_KERNEL_TIMEOUT:-600}

fail() {
    echo "kernel: $*" >&2
    exit 2
}

while [ $# -gt 0 ]; do
    case $1 in
        --own) kernel=own knowledge=kernel/linux-own.yaml ;;
        --phones) kernel=phones knowledge=kernel/linux-5.10.yaml ;;
        --device) devices+=("${2:?--device takes a name or a file}"); shift ;;
        --write) writes+=("${2:?--write takes NODE=TEXT}"); shift ;;
        --program) program=${2:?--program takes a file}; shift ;;
        --help) sed -n '2,/^set/{s/^# \{0,1\}//;/^set/d;p}' "$0"; exit 0 ;;
        --*) fail "there is no option $1; there are --own, --phones, --device, --write and --program" ;;
        *) files+=("$1") ;;
    esac
    shift
done
[ ${#devices[@]} -gt 0 ] || devices=(sm8450 sm4450)
if [ ${#files[@]} -eq 0 ] && [ ${#writes[@]} -eq 0 ]; then
    files=(kernel/writes.yaml lab/data/scenarios/*.yaml)
    [ $kernel = stock ] || files+=(kernel/uclamp.yaml)
fi
# By their place below here, or by their whole path.
for index in "${!files[@]}"; do
    [ -f "${files[$index]}" ] || fail "there is no file ${files[$index]}"
    files[index]=$(realpath --relative-base="$PWD" "${files[$index]}")
done
for tool in qemu-system-aarch64 dtc cpio readelf make; do
    command -v $tool >/dev/null || fail "$tool is missing; ./dev test kernel installs it"
done

# The module is as the kernel that it is built for.
build_module() {
    local folder=$build/$kernel/module headers=$build/$kernel/source
    if [ $kernel = stock ]; then
        headers=$build/stock/headers/usr/src/linux-headers-$(cat "$build/stock/release.txt")
    fi
    mkdir -p "$folder"
    if [ -s "$folder/lab_hal.ko" ] && cmp -s kernel/hal_requests/lab_hal.c "$folder/lab_hal.c" &&
        [ "$folder/lab_hal.ko" -nt "$build/$kernel/Image" ]; then
        return
    fi
    cp kernel/hal_requests/* "$folder"
    if ! make -C "$PWD/$headers" ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu- M="$PWD/$folder" modules \
        >"$folder/log.txt" 2>&1; then
        cat "$folder/log.txt" >&2
        fail "the module for the HAL's requests cannot be built"
    fi
    aarch64-linux-gnu-strip --strip-debug "$folder/lab_hal.ko"
}

# The libraries that the files given need, with what these need.
libraries_of() {
    local sysroot=build/aarch64-sysroot name path folder found
    local -A seen=()
    local queue=("$@")
    while [ ${#queue[@]} -gt 0 ]; do
        path=${queue[0]}
        queue=("${queue[@]:1}")
        while read -r name; do
            [ -z "${seen[$name]:-}" ] || continue
            seen[$name]=1
            found=
            for folder in {lib,usr/lib}/{aarch64-linux-gnu,aarch64-linux-gnu/android,p7zip}; do
                [ -e "$sysroot/$folder/$name" ] && found=$folder/$name && break
            done
            [ -n "$found" ] || continue
            echo "$found"
            queue+=("$sysroot/$found")
        done < <(readelf -d "$path" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p')
    done
}

# The system that the machine starts with, in the folder given, but for the device's own part.
lay_out_system() {
    local root=$1 lab library module name
    lab=$(dirname "$(dirname "$program")")
    rm -rf "$root"
    mkdir -p "$root"/{bin,lib,modules,files,usr/lib/aarch64-linux-gnu} "$root"/lab/{bin,lib,share}
    cp "$build/stock/busybox" "$root/bin/busybox"
    cp kernel/init "$root/init"
    chmod +x "$root/init"
    aarch64-linux-gnu-strip --strip-debug -o "$root/lab/bin/tarquel-machine" "$program"
    for library in "$lab"/lib/*.so "$lab"/lib/*/*.so; do
        name=${library#"$lab"/lib/}
        mkdir -p "$(dirname "$root/lab/lib/$name")"
        aarch64-linux-gnu-strip --strip-debug -o "$root/lab/lib/$name" "$library"
    done
    cp -r lab/data "$root/lab/share/tarquel-lab"
    cp build/aarch64-sysroot/lib/ld-linux-aarch64.so.1 "$root/lib/"
    while read -r library; do
        mkdir -p "$(dirname "$root/$library")"
        cp -L "build/aarch64-sysroot/$library" "$root/$library"
    done < <(libraries_of "$program" "$lab"/lib/*.so)
    for module in qcom-cpufreq-hw cpufreq_powersave governor_userspace imx-bus; do
        [ -f "$build/$kernel/modules/$module.ko" ] || continue
        cp "$build/$kernel/modules/$module.ko" "$root/modules"
        echo "$module.ko" >>"$root/modules/first.txt"
    done
    cp "$build/$kernel/module/lab_hal.ko" "$root/modules"
    cp "$knowledge" "$root/files/kernel.yaml"
}

# Plays everything on one device. Says what the machine said; its result is in FOLDER/result.txt.
play() {
    local device=$1 folder=$2 status=0
    local root=$folder/root
    rm -rf "$folder"
    mkdir -p "$folder"
    cp -r "$build/$kernel/system" "$root"
    local name=$device file
    if [ -f "$device" ]; then
        name=/files/device.yaml
        cp "$device" "$root/files/device.yaml"
    fi
    build/default/bin/tarquel-machine hardware "$device" "$folder" || return 2
    {
        printf 'set --'
        printf ' %q' --device "$name" --kernel kernel.yaml
        for file in "${writes[@]}"; do printf ' --write %q' "$file"; done
        for file in "${files[@]}"; do
            mkdir -p "$root/files/$(dirname "${file#/}")"
            cp "$file" "$root/files/${file#/}"
            printf ' %q' "${file#/}"
        done
        echo
    } >"$root/arguments"
    (cd "$root" && find . -print0 | LC_ALL=C sort -z |
        cpio --null -o -H newc --quiet | gzip -1) >"$folder/initrd.gz"

    local machine=(qemu-system-aarch64 -M "virt,gic-version=3" -cpu cortex-a72 -m 1024
        -smp "$(cat "$folder/cpus.txt")" -accel tcg,thread=single -nographic -nic none -no-reboot)
    # Of its own: QEMU's tree for this machine, and the frequency hardware behind it.
    if ! {
        "${machine[@]}" -M "dumpdtb=$folder/virt.dtb" </dev/null &&
            dtc -q -I dtb -O dts -o "$folder/virt.dts" "$folder/virt.dtb" &&
            cat "$folder/virt.dts" "$folder/hardware.dtsi" >"$folder/machine.dts" &&
            dtc -q -I dts -O dtb -o "$folder/machine.dtb" "$folder/machine.dts"
    } >"$folder/dtb.log" 2>&1; then
        cat "$folder/dtb.log" >&2
        echo "kernel: no device tree for $device" >&2
        return 2
    fi
    local registers=() address image
    while read -r address image; do
        registers+=(-device "loader,file=$image,addr=$address,force-raw=on")
    done <"$folder/registers.txt"
    timeout --foreground -k 5 "$patience" "${machine[@]}" -dtb "$folder/machine.dtb" "${registers[@]}" \
        -kernel "$build/$kernel/Image" -initrd "$folder/initrd.gz" \
        -append "console=ttyAMA0 quiet panic=-1 rdinit=/init" \
        </dev/null >"$folder/console.txt" 2>"$folder/qemu.txt" || status=$?
    tr -d '\r' <"$folder/console.txt" | sed -n '/^LAB BEGIN/,/^LAB RESULT/{/^LAB /!p}'
    local result
    result=$(tr -d '\r' <"$folder/console.txt" | sed -nE 's/^LAB RESULT ([0-9]+)$/\1/p' | tail -1)
    if [ -z "$result" ]; then
        tail -n 30 "$folder/console.txt" "$folder/qemu.txt" >&2
        [ $status -eq 124 ] && echo "kernel: not over after $patience s" >&2
        echo "kernel: $device: no result (QEMU ended with $status); $folder/console.txt has it all" >&2
        return 2
    fi
    echo "$result" >"$folder/result.txt"
}

[ -f "$build/$kernel/Image" ] || fail "there is no kernel in $build/$kernel"
build_module
lay_out_system "$build/$kernel/system"

# The devices' machines run beside each other: each has one thread. Each is a process group of its
# own, which ends with this script.
set -m
index=0
runs=()
folders=()
for device in "${devices[@]}"; do
    folder=$build/$kernel/run-$((index++))
    folders+=("$folder")
    mkdir -p "$folder"
    play "$device" "$folder" >"$folder.txt" 2>&1 &
    runs+=($!)
done
trap 'for run in "${runs[@]}"; do kill -- "-$run" 2>/dev/null || true; done' EXIT
worst=0
for index in "${!runs[@]}"; do
    wait "${runs[$index]}" || true
    # What fails before the machine has said a result is no difference.
    status=$(cat "${folders[$index]}/result.txt" 2>/dev/null || echo 2)
    echo "== ${devices[$index]} on $(sed -nE 's/^kernel: (.*)/\1/p' "$knowledge")"
    cat "${folders[$index]}.txt"
    [ $status -le $worst ] || worst=$status
done
trap - EXIT
case $worst in
    0) echo "kernel: the model answers as the kernel does" ;;
    1) echo "kernel: the model differs from the kernel" >&2 ;;
    *) echo "kernel: cannot run" >&2 ;;
esac
exit $worst
