#include "tools/sim/model/ThermalNodes.h"

#include <cmath>
#include <stdexcept>

namespace TalvexSim {
namespace {

const ThermalNodeParams& checked(const ThermalNodeParams& node) {
    if (!(node.capacity_JPerC > 0.0) || !(node.resistance_CPerW > 0.0)) {
        throw std::invalid_argument("thermal node " + node.name +
                                    ": capacity and resistance must be positive");
    }
    return node;
}

}  // namespace

ThermalNodes::ThermalNodes(const ThermalNodeParams& die_, const ThermalNodeParams& skin_,
                           double ambient, double initial_C)
    : die(checked(die_)),
      skin(checked(skin_)),
      ambient_C(ambient),
      die_C(initial_C),
      skin_C(initial_C) {}

// The rises over the steady state decay as exp(A t) with A = [[-a, a], [b, -(b + c)]]; its
// eigenvalues are real and distinct whenever b > 0, so
// exp(A t) = (exp(l1 t)(A - l2 I) - exp(l2 t)(A - l1 I)) / (l1 - l2).
void ThermalNodes::Step(double dt_s, double power_W) {
    if (!(dt_s > 0.0)) return;
    const double a = 1.0 / (die.resistance_CPerW * die.capacity_JPerC);
    const double b = 1.0 / (die.resistance_CPerW * skin.capacity_JPerC);
    const double c = 1.0 / (skin.resistance_CPerW * skin.capacity_JPerC);
    const double trace = -(a + b + c);
    const double l2 = (trace - std::sqrt(trace * trace - 4.0 * a * c)) / 2.0;
    // The slow mode from the product of the two, which a difference would lose.
    const double l1 = a * c / l2;
    const double e1 = std::exp(l1 * dt_s) / (l1 - l2);
    const double e2 = std::exp(l2 * dt_s) / (l1 - l2);

    const double skinSteady = ambient_C + power_W * skin.resistance_CPerW;
    const double dieSteady = skinSteady + power_W * die.resistance_CPerW;
    const double x = die_C - dieSteady;
    const double y = skin_C - skinSteady;
    die_C = dieSteady + e1 * ((-a - l2) * x + a * y) - e2 * ((-a - l1) * x + a * y);
    skin_C = skinSteady + e1 * (b * x + (-b - c - l2) * y) - e2 * (b * x + (-b - c - l1) * y);
}

double ThermalNodes::Node_C(const std::string& name) const {
    if (name == die.name) return die_C;
    if (name == skin.name) return skin_C;
    throw std::invalid_argument("no thermal node named " + name);
}

}  // namespace TalvexSim
