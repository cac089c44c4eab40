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
import csv
import math
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

    with open(monitor) as f:
        rows = [r for r in csv.DictReader(f) if float(r["time"]) >= tstart]
    # Over time, as the statistics: each step weighted by its time step.
    force = sum(float(r["force_x"]) * float(r["dt"]) for r in rows) / sum(float(r["dt"]) for r in rows)
    ustar = math.sqrt(force * depth)

    reader = pv.CGNSSeriesReader(FileNames=[stats])
    reader.UpdatePipelineInformation()
    reader.Bases = ["Statistics"]
    reader.PointArrayStatus = list(reader.PointArrayStatus.Available)
    reader.UpdatePipeline()
    grid = next(leaves(servermanager.Fetch(reader)))
    dims = [0, 0, 0]
    grid.GetDimensions(dims)
    pd = grid.GetPointData()
    vector = pd.GetArray("MeanVelocity")
    ni, nj, nk = dims
    stresses = [pd.GetArray("ReynoldsStress" + c) for c in ("UU", "VV", "WW")]
    profile, rms = [], []
    for k in range(nk):
        z = grid.GetPoint(k * ni * nj)[2]
        if z <= 0.0:
            continue
        total, count = 0.0, 0
        var = [0.0, 0.0, 0.0]
        for j in range(nj - 1):
            for i in range(ni - 1):
                n = (k * nj + j) * ni + i
                total += vector.GetComponent(n, 0) if vector else pd.GetArray("MeanVelocityX").GetValue(n)
                for c in range(3):
                    var[c] += stresses[c].GetValue(n) if stresses[c] else 0.0
                count += 1
        profile.append((z, total / count))
        rms.append([math.sqrt(max(v / count, 0.0)) for v in var])
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
          (ustar, force, len(rows)))
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
    chart = pv.CreateView("XYChartView")
    chart.ViewSize = [900, 700]
    chart.ChartTitle = "Rough open channel: u* = %.4f, fit kappa = %.3f, B = %.2f (B = %.2f at kappa 0.41)" % (
        ustar, kappa, b_free, b_fixed)
    chart.BottomAxisTitle = "z / ks"
    chart.LeftAxisTitle = "u / u*"
    chart.BottomAxisLogScale = 1
    d = pv.Show(table, chart)
    d.UseIndexForXAxis = 0
    d.XArrayName = "z_over_ks"
    d.SeriesVisibility = ["u_over_ustar", "loglaw_041_85"]
    d.SeriesLabel = ["u_over_ustar", "LES mean (statistics)", "loglaw_041_85", "log law, 0.41 and 8.5"]
    d.SeriesColor = ["u_over_ustar", "0", "0", "0.8", "loglaw_041_85", "0.85", "0.1", "0.1"]
    d.SeriesLineThickness = ["u_over_ustar", "3", "loglaw_041_85", "2"]
    d.SeriesMarkerStyle = ["u_over_ustar", "4"]
    pv.Render(chart)
    pv.SaveScreenshot(png, chart, ImageResolution=[900, 700])

    chart2 = pv.CreateView("XYChartView")
    chart2.ViewSize = [900, 700]
    chart2.ChartTitle = "Turbulence intensities (resolved) against Nezu and Nakagawa, u* = %.4f" % ustar
    chart2.BottomAxisTitle = "z / h"
    chart2.LeftAxisTitle = "rms / u*"
    d2 = pv.Show(table, chart2)
    d2.UseIndexForXAxis = 0
    d2.XArrayName = "z_over_h"
    series = ["urms_over_ustar", "vrms_over_ustar", "wrms_over_ustar", "nezu_u", "nezu_v", "nezu_w"]
    d2.SeriesVisibility = series
    d2.SeriesLabel = ["urms_over_ustar", "u' LES", "vrms_over_ustar", "v' LES", "wrms_over_ustar", "w' LES",
                      "nezu_u", "u' 2.30 exp(-z/h)", "nezu_v", "v' 1.63 exp(-z/h)", "nezu_w", "w' 1.27 exp(-z/h)"]
    d2.SeriesColor = ["urms_over_ustar", "0.85", "0.1", "0.1", "vrms_over_ustar", "0.1", "0.6", "0.1",
                      "wrms_over_ustar", "0", "0", "0.8", "nezu_u", "0.85", "0.1", "0.1",
                      "nezu_v", "0.1", "0.6", "0.1", "nezu_w", "0", "0", "0.8"]
    d2.SeriesLineThickness = ["urms_over_ustar", "3", "vrms_over_ustar", "3", "wrms_over_ustar", "3",
                              "nezu_u", "1", "nezu_v", "1", "nezu_w", "1"]
    d2.SeriesLineStyle = ["nezu_u", "2", "nezu_v", "2", "nezu_w", "2"]
    d2.SeriesMarkerStyle = ["urms_over_ustar", "4", "vrms_over_ustar", "4", "wrms_over_ustar", "4"]
    pv.Render(chart2)
    stem = png[:-4] if png.endswith(".png") else png
    pv.SaveScreenshot(stem + "-intensities.png", chart2, ImageResolution=[900, 700])


main()
