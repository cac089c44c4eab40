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
# Prints the figures; writes the profile as CSV and the plot as PNG.
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
    profile = []
    for k in range(nk):
        z = grid.GetPoint(k * ni * nj)[2]
        if z <= 0.0:
            continue
        total, count = 0.0, 0
        for j in range(nj - 1):
            for i in range(ni - 1):
                n = (k * nj + j) * ni + i
                total += vector.GetComponent(n, 0) if vector else pd.GetArray("MeanVelocityX").GetValue(n)
                count += 1
        profile.append((z, total / count))
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

    with open(out_csv, "w") as f:
        f.write("z,z_over_ks,u,u_over_ustar,loglaw_041_85\n")
        for z, u in profile:
            f.write("%.6g,%.6g,%.6g,%.6g,%.6g\n" % (z, z / ks, u, u / ustar, math.log(z / ks) / 0.41 + 8.5))

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


main()
