#include "BenchSupport.h"

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <thread>

#include "talvex/basics/CharacterDevice.h"
#include "talvex/basics/Log.h"

namespace TalvexBench {
namespace {

std::atomic<std::uint64_t> enabledTags{0};
std::atomic<std::uint64_t> traceCalls{0};
std::atomic<std::uint64_t> allocations{0};
std::atomic<std::int64_t> virtualNow_ns{0};

void countTraceCall() { traceCalls.fetch_add(1, std::memory_order_relaxed); }

void* allocate(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    const std::size_t align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = ((size == 0 ? 1 : size) + align - 1) / align * align;
    if (void* block = std::aligned_alloc(align, rounded)) return block;
    throw std::bad_alloc();
}

Basics::TimePoint virtualNow() {
    return Basics::TimePoint(
        std::chrono::nanoseconds(virtualNow_ns.load(std::memory_order_relaxed)));
}

}  // namespace

void SetTraceEnabled(bool enabled) { enabledTags.store(enabled ? 1u : 0u); }
std::uint64_t TraceCalls() { return traceCalls.load(); }
std::uint64_t Allocations() { return allocations.load(std::memory_order_relaxed); }

VirtualClock::VirtualClock() {
    // Not zero: a zero time point means "no time taken yet".
    virtualNow_ns.store(std::chrono::nanoseconds(std::chrono::seconds(1000)).count());
    Basics::SetClockSource(&virtualNow);
}

VirtualClock::~VirtualClock() { Basics::SetClockSource(nullptr); }

void VirtualClock::Advance(std::chrono::nanoseconds step) {
    virtualNow_ns.fetch_add(step.count(), std::memory_order_relaxed);
}

void VirtualClock::AdvanceMs(float milliseconds) {
    Advance(std::chrono::nanoseconds(static_cast<std::int64_t>(milliseconds * 1e6f)));
}

TmpfsNodeDirectory::TmpfsNodeDirectory() : previous(Basics::NodeDirectory()) {
    std::string pattern = "/dev/shm/talvex-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp in /dev/shm failed");
    path = pattern;
    Basics::SetNodeDirectory(path);
}

TmpfsNodeDirectory::~TmpfsNodeDirectory() {
    Basics::SetNodeDirectory(previous);
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

long TmpfsNodeDirectory::NodeSize(const std::string& node) const {
    struct stat status {};
    if (::stat(NodePath(node).c_str(), &status) != 0) return -1;
    return static_cast<long>(status.st_size);
}

MissingNodeDirectory::MissingNodeDirectory() : previous(Basics::NodeDirectory()) {
    Basics::SetNodeDirectory("/dev/shm/talvex-bench-missing/no-such-directory");
}

MissingNodeDirectory::~MissingNodeDirectory() { Basics::SetNodeDirectory(previous); }

LogLevelScope::LogLevelScope(int level, bool debug)
    : previousLevel(Basics::Log::LogLevel()), previousDebug(Basics::Log::IsDebug()) {
    Basics::Log::SetLogLevel(level);
    Basics::Log::SetDebug(debug);
}

LogLevelScope::~LogLevelScope() {
    Basics::Log::SetLogLevel(previousLevel);
    Basics::Log::SetDebug(previousDebug);
}

std::string CommandLine(int argc, char** argv) {
    std::string command;
    for (int i = 0; i < argc; ++i) {
        std::string argument = argv[i];
        if (i == 0) {
            std::error_code ignored;
            const auto relative = std::filesystem::relative(argument, ignored);
            if (!relative.empty()) argument = relative.string();
        }
        command += (i == 0 ? "" : " ") + argument;
    }
    return command;
}

std::string MachineDescription() {
    std::string model = "unknown CPU";
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);) {
        if (line.rfind("model name", 0) == 0) {
            const auto colon = line.find(':');
            if (colon != std::string::npos) model = line.substr(colon + 2);
            break;
        }
    }
    struct utsname names {};
    uname(&names);
    // Other work on a shared machine shows in the load.
    std::string load = "?";
    std::ifstream loadavg("/proc/loadavg");
    loadavg >> load;
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           names.sysname + " " + names.release + " " + names.machine + ", load average " + load +
           " at start";
}

}  // namespace TalvexBench

// Counting replacements of the global allocation functions; the deallocation functions must be
// replaced with them.
void* operator new(std::size_t size) { return TalvexBench::allocate(size); }
void* operator new[](std::size_t size) { return TalvexBench::allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return TalvexBench::allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return TalvexBench::allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return TalvexBench::allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return TalvexBench::allocateAligned(size, alignment);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }

// Interposed libcutils trace entry points (ATRACE_TAG_ALWAYS is bit 0).
extern "C" {

uint64_t atrace_get_enabled_tags() {
    return TalvexBench::enabledTags.load(std::memory_order_relaxed);
}
void atrace_begin_body(const char*) { TalvexBench::countTraceCall(); }
void atrace_end_body() { TalvexBench::countTraceCall(); }
void atrace_int_body(const char*, int32_t) { TalvexBench::countTraceCall(); }

}  // extern "C"
