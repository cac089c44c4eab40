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
from paraview import servermanager


def leaves(block):
    if block is None:
        return
    if block.IsA("vtkMultiBlockDataSet"):
        for n in range(block.GetNumberOfBlocks()):
            yield from leaves(block.GetBlock(n))
    else:
        yield block


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

    with open(monitor) as f:
        rows = [r for r in csv.DictReader(f) if float(r["time"]) >= tstart]
    weight = sum(float(r["dt"]) for r in rows)
    force = sum(float(r["force_x"]) * float(r["dt"]) for r in rows) / weight
    discharge = sum(float(r["discharge"]) * float(r["dt"]) for r in rows) / weight
    ustar = math.sqrt(force * depth)
    bulk = discharge / (depth * width)
    re_tau = ustar * depth / visc

    reader = pv.CGNSSeriesReader(FileNames=[stats])
    reader.UpdatePipelineInformation()
    reader.Bases = ["Statistics"]
    reader.PointArrayStatus = list(reader.PointArrayStatus.Available)
    reader.UpdatePipeline()
    grid = next(leaves(servermanager.Fetch(reader)))
    dims = [0, 0, 0]
    grid.GetDimensions(dims)
    pd = grid.GetPointData()
    ni, nj, nk = dims
    names = ["MeanVelocityX", "ReynoldsStressUU", "ReynoldsStressVV", "ReynoldsStressWW", "ReynoldsStressUW"]
    arrays = [pd.GetArray(n) for n in names]
    vector = pd.GetArray("MeanVelocity")
    profile = []
    for k in range(nk):
        z = grid.GetPoint(k * ni * nj)[2]
        if z <= 0.0 or z > depth + 1e-12:
            continue
        sums = [0.0] * 5
        count = 0
        for j in range(nj - 1):
            for i in range(ni - 1):
                n = (k * nj + j) * ni + i
                sums[0] += vector.GetComponent(n, 0) if vector else arrays[0].GetValue(n)
                for c in range(1, 5):
                    sums[c] += arrays[c].GetValue(n) if arrays[c] else 0.0
                count += 1
        m = [s / count for s in sums]
        u2 = ustar * ustar
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
          (ustar, force, len(rows), re_tau))
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
    chart = pv.CreateView("XYChartView")
    chart.ViewSize = [900, 700]
    chart.ChartTitle = "Smooth channel, Re_tau = %.0f: U_b+ = %.2f (DNS 15.68), Cf = %.2e (8.14e-3)" % (
        re_tau, bulk / ustar, 2.0 * (ustar / bulk) ** 2)
    chart.BottomAxisTitle = "z+ (distance from the wall in wall units)"
    chart.LeftAxisTitle = "u / u*"
    chart.BottomAxisLogScale = 1
    d = pv.Show(table, chart)
    d.UseIndexForXAxis = 0
    d.XArrayName = "yplus"
    d.SeriesVisibility = ["U", "U_ref"]
    d.SeriesLabel = ["U", "LES mean (statistics)", "U_ref", "DNS, Moser, Kim and Mansour"]
    d.SeriesColor = ["U", "0", "0", "0.8", "U_ref", "0.85", "0.1", "0.1"]
    d.SeriesLineThickness = ["U", "3", "U_ref", "2"]
    d.SeriesMarkerStyle = ["U", "4"]
    pv.Render(chart)
    pv.SaveScreenshot(png, chart, ImageResolution=[900, 700])

    chart2 = pv.CreateView("XYChartView")
    chart2.ViewSize = [900, 700]
    chart2.ChartTitle = "Smooth channel: resolved stresses against the DNS (dashed)"
    chart2.BottomAxisTitle = "z+"
    chart2.LeftAxisTitle = "rms / u*, -u'w' / u*^2"
    d2 = pv.Show(table, chart2)
    d2.UseIndexForXAxis = 0
    d2.XArrayName = "yplus"
    series = ["urms", "vrms", "wrms", "uw"]
    d2.SeriesVisibility = series + [s + "_ref" for s in series]
    d2.SeriesLabel = ["urms", "u' LES", "vrms", "v' (spanwise) LES", "wrms", "w' (normal) LES", "uw", "-u'w' LES",
                      "urms_ref", "u' DNS", "vrms_ref", "v' DNS", "wrms_ref", "w' DNS", "uw_ref", "-u'w' DNS"]
    colours = {"urms": ("0.85", "0.1", "0.1"), "vrms": ("0.1", "0.6", "0.1"), "wrms": ("0", "0", "0.8"),
               "uw": ("0.5", "0.2", "0.6")}
    d2.SeriesColor = [x for s in series for x in (s, *colours[s])] + \
        [x for s in series for x in (s + "_ref", *colours[s])]
    d2.SeriesLineThickness = [x for s in series for x in (s, "3", s + "_ref", "1")]
    d2.SeriesLineStyle = [x for s in series for x in (s + "_ref", "2")]
    d2.SeriesMarkerStyle = [x for s in series for x in (s, "4")]
    pv.Render(chart2)
    pv.SaveScreenshot((png[:-4] if png.endswith(".png") else png) + "-stresses.png", chart2,
                      ImageResolution=[900, 700])


main()
