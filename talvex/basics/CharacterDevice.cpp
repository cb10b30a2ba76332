#include "talvex/basics/CharacterDevice.h"

#include <fstream>
#include <mutex>

namespace Basics {
namespace {

std::mutex nodeDirectoryMutex;
std::string& nodeDirectory() {
    static std::string* directory = new std::string("/sys/module/tarrow/parameters");
    return *directory;
}

constexpr float kRereadPeriod_ms = 10000.0f;

}  // namespace

std::string NodeDirectory() {
    std::lock_guard<std::mutex> lock(nodeDirectoryMutex);
    return nodeDirectory();
}

void SetNodeDirectory(const std::string& directory) {
    std::lock_guard<std::mutex> lock(nodeDirectoryMutex);
    nodeDirectory() = directory;
}

CharacterDevice::CharacterDevice(const std::string& path) : devicePath(path), lastReadTime(Now()) {}

CharacterDevice::~CharacterDevice() = default;

void CharacterDevice::SetTargetStatus(const std::string& status) {
    if (status != targetStatus) {
        targetStatus = status;
        updateDeviceStatus();
    }
    if (!targetStatus.empty()) writeStatusToDevice();
}

void CharacterDevice::Update() {
    const TimePoint now = Now();
    const auto sinceLastRead_ms = static_cast<float>(ElapsedMs(lastReadTime, now));
    if (sinceLastRead_ms >= kRereadPeriod_ms) {
        updateDeviceStatus();
        lastReadTime = now;
    }
    if (!targetStatus.empty()) writeStatusToDevice();
}

void CharacterDevice::updateDeviceStatus() {
    deviceStatus.clear();
    std::ifstream node(devicePath);
    if (node.is_open()) node >> deviceStatus;
}

void CharacterDevice::writeStatusToDevice() {
    if (deviceStatus == targetStatus) return;
    {
        std::ofstream node(devicePath, std::ios_base::out | std::ios_base::trunc);
        if (node.is_open()) node << targetStatus;
    }
    deviceStatus = targetStatus;
}

}  // namespace Basics
