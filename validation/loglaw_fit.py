# The mean velocity profile of a rough open-channel run against the log law.
#
#   pvpython loglaw_fit.py STATSFILE MONITOR.csv DEPTH KS TSTART OUT.png OUT.csv
#
# STATSFILE: the last statistics file of the run; MONITOR.csv its monitor log;
# DEPTH: water depth over the bed at z = 0; KS: roughness height; TSTART: the
# start of the statistics.  The profile is the plane average of MeanVelocityX
# over every node at each height (x and y periodic, the repeated last node
# of each direction left out).  The friction velocity comes from the momentum
# balance of the channel, u*^2 = <force_x> DEPTH (the driving acceleration of
# the monitor log averaged over the same time, each step weighted by its
# time step), independent of the wall law.
# Fitted over the log layer (from two cells above the bed to 0.3 DEPTH):
#   u/u* = (1/kappa) ln(z/ks) + B         (kappa and B both free)
#   u/u* = (1/0.41)  ln(z/ks) + B_0.41    (kappa fixed)
# The turbulence intensities (plane means of the resolved Reynolds stresses,
# square-rooted, over u*) against Nezu and Nakagawa's open-channel curves,
# u'/u* = 2.30 exp(-z/h), v'/u* = 1.63 exp(-z/h), w'/u* = 1.27 exp(-z/h),
# compared over 0.1 < z/h < 0.9: the mean ratio and the rms of the relative
# difference per component.
# The bed shear stress against the momentum balance from the statistics
# file's Reach record (needs h5py).
# Prints the figures; writes the profile as CSV, the figures as
# OUT-summary.txt (name value per line) and the plots as PNG (the
# intensities beside OUT.png, as OUT-intensities.png).
import math
import sys

import paraview.simple as pv

from profiles import chart, plane_means, time_means


def bed_stress(stats, ustar):
    # The bed shear stress of the statistics file's Reach record (plan mean of
    # MeanBedShearStressX and the momentum balance) and the wall law's friction
    # velocity over the balance's; read through h5py where it is installed.
    try:
        import h5py
    except ImportError:
        print("bed stress: h5py not installed (Debian package python3-h5py), not read")
        return []
    with h5py.File(stats, "r") as f:
        reach = f["Statistics/Reach"]
        plan = float(reach["PlanMeanBedShearStressX"][" data"][0])
        balance = float(reach["MomentumBalanceShearStress"][" data"][0])
        wall = f["Bed/Zone1/BedStatistics/MeanFrictionVelocity"][" data"][()]
        wall_ustar = float(wall.mean())
    print("bed stress: plan mean of MeanBedShearStressX %.4f Pa, momentum balance %.4f Pa (%+.2f %%)" %
          (plan, balance, 100.0 * (plan / balance - 1.0)))
    print("wall law's friction velocity (bed mean) %.5f, %.2f of the balance's" % (wall_ustar, wall_ustar / ustar))
    return [("bed_stress", plan), ("balance_stress", balance), ("wall_ustar_ratio", wall_ustar / ustar)]


def main():
    stats, monitor, depth, ks, tstart, png, out_csv = sys.argv[1:8]
    depth, ks, tstart = float(depth), float(ks), float(tstart)

    # Over time, as the statistics: each step weighted by its time step.
    (force,), steps = time_means(monitor, tstart, ["force_x"])
    ustar = math.sqrt(force * depth)

    names = ["MeanVelocityX", "ReynoldsStressUU", "ReynoldsStressVV", "ReynoldsStressWW"]
    profile, rms = [], []
    for z, m in plane_means(stats, names):
        if z <= 0.0:
            continue
        profile.append((z, m[0]))
        rms.append([math.sqrt(max(v, 0.0)) for v in m[1:]])
    dz = profile[1][0] - profile[0][0]
    fit = [(math.log(z / ks), u / ustar) for z, u in profile if 2 * dz <= z <= 0.3 * depth]
    n = len(fit)
    mx = sum(x for x, _ in fit) / n
    my = sum(y for _, y in fit) / n
    slope = sum((x - mx) * (y - my) for x, y in fit) / sum((x - mx) ** 2 for x, _ in fit)
    kappa = 1.0 / slope
    b_free = my - slope * mx
    b_fixed = my - mx / 0.41
    residual = math.sqrt(sum((y - (x / 0.41 + 8.5)) ** 2 for x, y in fit) / n)

    print("friction velocity from the momentum balance: u* = %.5f (mean force_x %.6g over %d steps)" %
          (ustar, force, steps))
    print("log-layer fit over %d heights, z = %.4g to %.4g:" % (n, math.exp(fit[0][0]) * ks, math.exp(fit[-1][0]) * ks))
    print("  kappa = %.3f, B = %.2f (both free)" % (kappa, b_free))
    print("  B = %.2f with kappa = 0.41" % b_fixed)
    print("  rms of u/u* from the law with 0.41 and 8.5 over the fit range: %.2f" % residual)

    summary = [("force_x", force), ("ustar_balance", ustar), ("kappa_free", kappa), ("B_free", b_free),
               ("B_041", b_fixed), ("rms_from_law", residual)]
    nezu = (2.30, 1.63, 1.27)
    print("turbulence intensities (resolved) against Nezu and Nakagawa over 0.1 < z/h < 0.9:")
    for c, name in enumerate(("u'", "v'", "w'")):
        pairs = [(r[c] / ustar, nezu[c] * math.exp(-z / depth)) for (z, _), r in zip(profile, rms)
                 if 0.1 < z / depth < 0.9]
        ratio = sum(a / b for a, b in pairs) / len(pairs)
        dev = math.sqrt(sum((a / b - 1.0) ** 2 for a, b in pairs) / len(pairs))
        print("  %s/u*: mean ratio to the curve %.3f, rms relative difference %.3f over %d heights" %
              (name, ratio, dev, len(pairs)))
        summary += [(name[0] + "rms_ratio", ratio), (name[0] + "rms_dev", dev)]
    summary += bed_stress(stats, ustar)

    with open(out_csv[:-4] + "-summary.txt" if out_csv.endswith(".csv") else out_csv + "-summary.txt", "w") as f:
        for name, value in summary:
            f.write("%s %.6g\n" % (name, value))

    with open(out_csv, "w") as f:
        f.write("z,z_over_ks,u,u_over_ustar,loglaw_041_85,z_over_h,urms_over_ustar,vrms_over_ustar,"
                "wrms_over_ustar,nezu_u,nezu_v,nezu_w\n")
        for (z, u), r in zip(profile, rms):
            e = math.exp(-z / depth)
            f.write("%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g,%.6g\n" % (
                z, z / ks, u, u / ustar, math.log(z / ks) / 0.41 + 8.5, z / depth,
                r[0] / ustar, r[1] / ustar, r[2] / ustar, nezu[0] * e, nezu[1] * e, nezu[2] * e))

    table = pv.CSVReader(FileName=[out_csv])
    chart(table, png, "Rough open channel: u* = %.4f, fit kappa = %.3f, B = %.2f (B = %.2f at kappa 0.41)" % (
        ustar, kappa, b_free, b_fixed), "z / ks", "u / u*", "z_over_ks",
          [("u_over_ustar", "LES mean (statistics)", (0, 0, 0.8), 3, False, True),
           ("loglaw_041_85", "log law, 0.41 and 8.5", (0.85, 0.1, 0.1), 2, False, False)], log_x=True)
    stem = png[:-4] if png.endswith(".png") else png
    red, green, blue = (0.85, 0.1, 0.1), (0.1, 0.6, 0.1), (0, 0, 0.8)
    chart(table, stem + "-intensities.png",
          "Turbulence intensities (resolved) against Nezu and Nakagawa, u* = %.4f" % ustar, "z / h", "rms / u*",
          "z_over_h",
          [("urms_over_ustar", "u' LES", red, 3, False, True), ("vrms_over_ustar", "v' LES", green, 3, False, True),
           ("wrms_over_ustar", "w' LES", blue, 3, False, True),
           ("nezu_u", "u' 2.30 exp(-z/h)", red, 1, True, False), ("nezu_v", "v' 1.63 exp(-z/h)", green, 1, True, False),
           ("nezu_w", "w' 1.27 exp(-z/h)", blue, 1, True, False)])


main()
