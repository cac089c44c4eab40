// Whole runs checked against physics: a laminar open channel against its
// analytic profile, and the discharge controller holding its target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
#include "flow/forces.hpp"
#include "run_helpers.hpp"

namespace {

// Discharge through the first section as the controller measures it.
double measured_discharge() {
  rl::FORCES();
  return rl::discharge - rl::forcex / 100.0;
}

struct ChannelError {
  double max_rel;  // largest error over the depth, relative to the surface velocity
  double force;
};

// Laminar flow down a periodic channel, no slip at the bottom (z = 0) and
// free slip at the top (z = h), driven by the controller's force F:
// u(z) = F/nu (h z - z^2/2).
// As an open reach (open) the inflow fixes the discharge and the pressure
// the force: F = 3 nu U / h^2 for the mean velocity U.
ChannelError laminar_channel(int kexp, bool open = false) {
  rltest::CaseSpec s;
  const double h = 0.02, nu = 1e-3;  // settles in about 0.16 s
  s.ni = 5;
  s.nj = 5;
  s.lx = 0.4;
  s.ly = 0.4;
  s.bed = -1.0;  // well below the box: every position is fluid
  s.set("kmaxItm", kexp).set("zminItm", 0.0).set("zmaxItm", h).set("viscItm", nu);
  s.set("dischargeItm", 0.4 * 0.01 * h);  // 1 cm/s mean velocity
  s.set("timetypeItm", 0).set("cflItm", 0.2).set("endtimeItm", 2.5).set("OTimeItm", 100.0);
  s.set("yBoundItm", 0).set("zBoundItm", 0).set("smagorinskyItm", 0.0).set("iPerturbItm", 0);
  s.set("epsItm", 1e-10).set("kpoismaxItm", 50);
  if (open) s.set("OpenReachItm", 1).set("SlopeItm", 0.0);
  int status = -1;
  rltest::run_in_process(s, "laminar", &status);
  EXPECT_EQ(status, 0);

  const double F = open ? 3.0 * nu * 0.01 / (h * h) : rl::forcex;
  double umax = F / nu * (h * h - h * h / 2);
  double err = 0.0;
  for (int k = 1; k <= rl::kmax; ++k) {
    const double z = (k - 0.5) * rl::dz;
    const double exact = F / nu * (h * z - z * z / 2);
    // An open reach's outlet face is convective: it takes the profile from
    // upstream at the bulk velocity, a cell in 10 s here, and still carries
    // most of the uniform start.
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = open ? 0 : 1; i <= rl::imax - (open ? 1 : 0); ++i)
        err = std::max(err, std::abs(rl::u(i, j, k) - exact));
  }
  return {err / umax, F};
}

}  // namespace

TEST(Physics, LaminarOpenChannelConvergesAtSecondOrder) {
  std::vector<double> errors;
  for (int kexp = 2; kexp <= 4; ++kexp) {
    const ChannelError e = laminar_channel(kexp);
    std::printf("laminar channel: %2d layers: force %.6e, max error / surface velocity %.3e\n", 1 << kexp,
                e.force, e.max_rel);
    errors.push_back(e.max_rel);
  }
  for (std::size_t n = 1; n < errors.size(); ++n) {
    const double order = std::log2(errors[n - 1] / errors[n]);
    std::printf("laminar channel: observed order %.3f\n", order);
    EXPECT_GT(order, 1.8);
    EXPECT_LT(order, 2.2);
  }
  EXPECT_LT(errors.back(), 2e-3);
}

TEST(Physics, OpenLaminarChannelCarriesItsDischargeInTheParabola) {
  // The inflow recycles the profile 2 columns in (and the inlet face, i = 0,
  // is checked too); the box is closed but for the open faces, so every
  // section carries what enters.
  const ChannelError e = laminar_channel(4, true);
  std::printf("open laminar channel: 16 layers: max error / surface velocity %.3e\n", e.max_rel);
  EXPECT_LT(e.max_rel, 2e-3);
  EXPECT_EQ(rl::ibcp(rl::LowZ), rl::Gradient);
  for (int i = 0; i <= rl::imax; ++i) EXPECT_NEAR(rl::section_discharge(&rl::u, i), rl::discharge, 1e-9 * rl::discharge) << i;
}

TEST(Physics, ControllerDrivesTheFlatChannelToItsDischarge) {
  // From rest, fixed steps of 5 ms: the measured discharge rises to the target.
  double previous_gap = 1e300;
  for (int steps : {100, 200, 400}) {  // of 5 ms
    int status = -1;
    rltest::run_description("flat-channel.txt",
                    "InitialItm 2\niPerturbItm 0\ntimetypeItm 1\ntimestepItm 0.005\nOTimeItm 10\nendtimeItm " +
                        std::to_string(steps * 0.005 - 0.0025),
                    "controller", &status);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(rl::nstep, steps);
    const double q = measured_discharge();
    const double gap = std::abs(q - rl::discharge) / rl::discharge;
    std::printf("flat channel from rest: %3d steps: discharge %.6e of %.6e (%.2f%% off), forcex %.4e, divmax %.3e\n",
                steps, q, rl::discharge, 100 * gap, rl::forcex, rl::divmax);
    EXPECT_LT(gap, previous_gap);
    previous_gap = gap;
  }
  // A proportional controller settles with an offset: the force that holds
  // the flow against the bed's drag is 100 times the missing discharge.
  EXPECT_LT(previous_gap, 0.08);
}
