// A program that knows the library only through its installed package: both halves, one tick and
// one frame, against nodes in a scratch directory.
#include <stdlib.h>
#include <talvex/Talvex.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string readNode(const std::string& path) {
    std::ifstream node(path);
    std::string text;
    std::getline(node, text);
    return text;
}

}  // namespace

int main() {
    if (Basics::NodeDirectory() != "/sys/module/tarrow/parameters") return 1;
    char pattern[] = "/tmp/talvex-consumer-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return 1;
    Basics::SetNodeDirectory(pattern);
    Basics::Log::SetLogLevel(-1);

    android::FpsStabilizer::FpsManager manager(4242, 60);
    android::FpsStabilizer::SYS_INFO info{};
    manager.Update(info, 60, 60);
    manager.PostUpdate();
    const std::string efpsMax = readNode(std::string(pattern) + "/efps_max");

    float sleep_ms = -1.0f;
    {
        android::Nimbrel::Quillet::Quillet pacer;
        pacer.Update(60, 60, 60);
        sleep_ms = pacer.CalculateSleepDuration_ms();
        pacer.PostUpdate();
    }
    manager.OnPause();
    std::filesystem::remove_all(pattern);

    std::printf("consumer: efps_max after one tick '%s', first sleep %.1f ms\n", efpsMax.c_str(),
                sleep_ms);
    return efpsMax == "4242,-1,-1" && sleep_ms == 0.0f ? 0 : 1;
}
