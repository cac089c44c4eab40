# The smooth-wall channel at Re_tau = 180 against the direct simulation of
# Moser, Kim and Mansour (1999), validation/data/mkm-chan180.csv.
#
#   pvpython smooth_fit.py STATSFILE MONITOR.csv DEPTH VISC WIDTH TSTART OUT.png OUT.csv
#
# STATSFILE: the last statistics file of the run; MONITOR.csv its monitor log;
# DEPTH: water depth over the bed at z = 0 (the channel's half height);
# VISC: the kinematic viscosity; WIDTH: the channel's width (for the bulk
# velocity from the measured discharge); TSTART: the start of the statistics.
# u* comes from the momentum balance, u*^2 = <force_x> DEPTH (each step
# weighted by its time step), the bulk velocity from the mean measured
# discharge over the same time.  The profiles are plane means over the
# nodes of each height (x and y periodic, the repeated last node left out);
# the intensities are the resolved Reynolds stresses' square roots.  riverles'
# z is the simulation's wall-normal y, riverles' y its spanwise z.
# Prints the figures (bulk velocity in wall units, skin friction, the peaks
# of u' and -u'w' and where they sit, the rms differences from the profiles);
# writes the profiles as CSV, the figures as OUT-summary.txt and the plots
# as OUT.png (mean velocity) and OUT-stresses.png.
import csv
import math
import os
import sys

import paraview.simple as pv

from profiles import chart, plane_means, time_means


def reference():
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "data", "mkm-chan180.csv")
    with open(path) as f:
        rows = [r for r in csv.reader(f) if r and not r[0].startswith("#")]
    head = rows[0]
    return [{k: float(v) for k, v in zip(head, r)} for r in rows[1:]]


def at(ref, y, key):
    # Linear interpolation of the reference in y/h (0 to 1).
    for a, b in zip(ref, ref[1:]):
        if a["y"] <= y <= b["y"]:
            w = (y - a["y"]) / (b["y"] - a["y"])
            return a[key] + w * (b[key] - a[key])
    return ref[-1][key]


def main():
    stats, monitor, depth, visc, width, tstart, png, out_csv = sys.argv[1:9]
    depth, visc, width, tstart = float(depth), float(visc), float(width), float(tstart)
    ref = reference()

    (force, discharge), steps = time_means(monitor, tstart, ["force_x", "discharge"])
    ustar = math.sqrt(force * depth)
    bulk = discharge / (depth * width)
    re_tau = ustar * depth / visc

    names = ["MeanVelocityX", "ReynoldsStressUU", "ReynoldsStressVV", "ReynoldsStressWW", "ReynoldsStressUW"]
    profile = []
    u2 = ustar * ustar
    for z, m in plane_means(stats, names):
        if z <= 0.0 or z > depth + 1e-12:
            continue
        profile.append({"z": z, "yplus": z * ustar / visc, "y": z / depth, "U": m[0] / ustar,
                        "urms": math.sqrt(max(m[1], 0.0) / u2), "vrms": math.sqrt(max(m[2], 0.0) / u2),
                        "wrms": math.sqrt(max(m[3], 0.0) / u2), "uw": -m[4] / u2})

    # Reference columns at the run's heights: streamwise, spanwise (their
    # w), wall-normal (their v), the shear stress.
    for p in profile:
        p["U_ref"] = at(ref, p["y"], "U")
        p["urms_ref"] = math.sqrt(at(ref, p["y"], "R_uu"))
        p["vrms_ref"] = math.sqrt(at(ref, p["y"], "R_ww"))
        p["wrms_ref"] = math.sqrt(at(ref, p["y"], "R_vv"))
        p["uw_ref"] = -at(ref, p["y"], "R_uv")

    def rms(key):
        return math.sqrt(sum((p[key] - p[key + "_ref"]) ** 2 for p in profile) / len(profile))

    peak_u = max(profile, key=lambda p: p["urms"])
    peak_uw = max(profile, key=lambda p: p["uw"])
    summary = [("force_x", force), ("ustar", ustar), ("re_tau", re_tau), ("bulk", bulk),
               ("ub_plus", bulk / ustar), ("cf", 2.0 * (ustar / bulk) ** 2),
               ("urms_peak", peak_u["urms"]), ("urms_peak_yplus", peak_u["yplus"]),
               ("uw_peak", peak_uw["uw"]), ("uw_peak_yplus", peak_uw["yplus"]),
               ("first_node_yplus", profile[0]["yplus"]),
               ("U_rms_diff", rms("U")), ("urms_rms_diff", rms("urms")), ("vrms_rms_diff", rms("vrms")),
               ("wrms_rms_diff", rms("wrms")), ("uw_rms_diff", rms("uw"))]
    print("momentum balance: u* = %.5f m/s (mean force_x %.6g over %d steps), Re_tau = %.1f" %
          (ustar, force, steps, re_tau))
    print("bulk velocity %.5f m/s: U_b+ = %.2f (simulation 15.68), skin friction 2 (u*/U_b)^2 = %.3e (8.14e-3)" %
          (bulk, bulk / ustar, 2.0 * (ustar / bulk) ** 2))
    print("u' peak %.3f at y+ = %.1f (simulation 2.658 at 15.3); -u'w' peak %.3f at y+ = %.1f (0.723 at 30)" %
          (peak_u["urms"], peak_u["yplus"], peak_uw["uw"], peak_uw["yplus"]))
    print("rms differences over the depth, in wall units: U+ %.2f, u' %.3f, v' %.3f, w' %.3f, -u'w' %.3f" %
          (rms("U"), rms("urms"), rms("vrms"), rms("wrms"), rms("uw")))
    print("first node above the wall at y+ = %.2f" % profile[0]["yplus"])

    stem = out_csv[:-4] if out_csv.endswith(".csv") else out_csv
    with open(stem + "-summary.txt", "w") as f:
        for name, value in summary:
            f.write("%s %.6g\n" % (name, value))
    keys = ["z", "yplus", "y", "U", "U_ref", "urms", "urms_ref", "vrms", "vrms_ref", "wrms", "wrms_ref", "uw",
            "uw_ref"]
    with open(out_csv, "w") as f:
        f.write(",".join(keys) + "\n")
        for p in profile:
            f.write(",".join("%.6g" % p[k] for k in keys) + "\n")

    table = pv.CSVReader(FileName=[out_csv])
    chart(table, png, "Smooth channel, Re_tau = %.0f: U_b+ = %.2f (DNS 15.68), Cf = %.2e (8.14e-3)" % (
        re_tau, bulk / ustar, 2.0 * (ustar / bulk) ** 2), "z+ (distance from the wall in wall units)", "u / u*",
          "yplus", [("U", "LES mean (statistics)", (0, 0, 0.8), 3, False, True),
                    ("U_ref", "DNS, Moser, Kim and Mansour", (0.85, 0.1, 0.1), 2, False, False)], log_x=True)
    colours = {"urms": (0.85, 0.1, 0.1), "vrms": (0.1, 0.6, 0.1), "wrms": (0, 0, 0.8), "uw": (0.5, 0.2, 0.6)}
    labels = {"urms": "u'", "vrms": "v' (spanwise)", "wrms": "w' (normal)", "uw": "-u'w'"}
    lines = [(k, labels[k] + " LES", colours[k], 3, False, True) for k in colours] + \
        [(k + "_ref", labels[k].split()[0] + " DNS", colours[k], 1, True, False) for k in colours]
    chart(table, (png[:-4] if png.endswith(".png") else png) + "-stresses.png",
          "Smooth channel: resolved stresses against the DNS (dashed)", "z+", "rms / u*, -u'w' / u*^2", "yplus",
          lines)


main()
