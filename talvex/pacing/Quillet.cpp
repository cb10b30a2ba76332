#include "talvex/pacing/Quillet.h"

#include "talvex/pacing/QuilletImpl.h"

namespace android {
namespace Nimbrel {
namespace Quillet {

Quillet::Quillet() : Quillet(PacingPolicy::Quota) {}

Quillet::Quillet(PacingPolicy policy) : impl(std::make_unique<QuilletImpl>(policy)) {}

Quillet::~Quillet() = default;

void Quillet::Update(int targetSFPS, int refreshRate, int maxFPS) {
    impl->Update(targetSFPS, refreshRate, maxFPS);
}

float Quillet::CalculateSleepDuration_ms() { return impl->CalculateSleepDuration_ms(); }

Basics::TimePoint Quillet::CalculateWakeUpTime() { return impl->CalculateWakeUpTime(); }

void Quillet::PostUpdate() { impl->PostUpdate(); }

void Quillet::OnVsync(Basics::TimePoint vsync, std::chrono::nanoseconds period) {
    impl->OnVsync(vsync, period);
}

void Quillet::SetLatchMargin(std::chrono::nanoseconds margin) { impl->SetLatchMargin(margin); }

}  // namespace Quillet
}  // namespace Nimbrel
}  // namespace android
