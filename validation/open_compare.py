"""The open reach against the periodic box (validation/open.sh).

    /usr/bin/python3 open_compare.py PERIODIC_DIR OPEN_DIR

Reads each run's last statistics file and monitor log.  The periodic box's
profile is its mean over the whole plan; the open reach's at stations from
5 depths behind the inlet to the outlet, each over the span and 5 node
columns.  Prints the largest deviations and whether each is within the
issue's bounds (mean 5 %, intensities 15 %, discharge 0.5 %)."""
import csv
import glob
import sys

import h5py
import numpy as np

DEPTH = 0.1  # water over the mean bed at 0


def stats(run):
    last = sorted(glob.glob(run + "/channel_stats_*.cgns"))[-1]
    with h5py.File(last, "r") as f:
        z = f["Statistics/Zone1"]
        g = z["Statistics"]
        x = z["GridCoordinates/CoordinateX/ data"][0, 0, :]
        zz = z["GridCoordinates/CoordinateZ/ data"][:, 0, 0]
        a = {n: g[n][" data"][:] for n in ("MeanVelocityX", "ReynoldsStressUU", "ReynoldsStressVV",
                                           "ReynoldsStressWW", "ReynoldsStressUW")}
    return x, zz, a


def profile(a, cols):
    """Plane means over the span and the given node columns: U, u', v', w', -u'w'."""
    m = {n: v[:, :, cols].mean(axis=(1, 2)) for n, v in a.items()}
    return (m["MeanVelocityX"], np.sqrt(np.maximum(m["ReynoldsStressUU"], 0)),
            np.sqrt(np.maximum(m["ReynoldsStressVV"], 0)), np.sqrt(np.maximum(m["ReynoldsStressWW"], 0)),
            -m["ReynoldsStressUW"])


def monitor(run):
    with open(run + "/channel_monitor.csv") as f:
        return list(csv.DictReader(f))


def main():
    per, opn = sys.argv[1], sys.argv[2]
    x, z, ap = stats(per)
    xo, zo, ao = stats(opn)
    ref = profile(ap, slice(None))
    water = (z / DEPTH > 0.1) & (z / DEPTH < 0.9)  # the mean and intensities away from bed and lid
    names = ("U", "u'", "v'", "w'")
    bounds = (0.05, 0.15, 0.15, 0.15)
    worst = [0.0] * 4
    print("station x/h  " + "  ".join("%-7s" % ("d" + n) for n in names) + "  (largest relative deviation, 0.1 < z/h < 0.9)")
    for xs in (0.5, 0.9, 1.3, 1.7, 2.1, 2.35):
        i = int(np.argmin(np.abs(xo - xs)))
        cols = slice(max(i - 2, 0), min(i + 3, len(xo)))
        pr = profile(ao, cols)
        dev = [float(np.max(np.abs(pr[q][water] - ref[q][water]) / np.abs(ref[q][water]))) for q in range(4)]
        worst = [max(a, b) for a, b in zip(worst, dev)]
        print("        %5.1f  " % (xs / DEPTH) + "  ".join("%6.1f%%" % (100 * d) for d in dev))
    for n, w, b in zip(names, worst, bounds):
        print("%-3s largest deviation %5.1f %% (bound %2.0f %%): %s" % (n, 100 * w, 100 * b, "within" if w <= b else "NOT within"))
    # The profiles side by side at the middle of the reach and by the outlet.
    print("\n z/h    U_per  U_open(mid)  U_open(out)   u'_per  u'_open(mid)  u'_open(out)")
    mid = profile(ao, slice(44, 53))
    out = profile(ao, slice(len(xo) - 6, len(xo) - 1))
    for k in np.nonzero(z > 0)[0]:
        print("%5.2f  %6.4f  %6.4f       %6.4f       %6.4f  %6.4f        %6.4f" % (
            z[k] / DEPTH, ref[0][k], mid[0][k], out[0][k], ref[1][k], mid[1][k], out[1][k]))

    rows = monitor(opn)
    target = float(rows[0]["discharge_target"])
    qin = max(abs(float(r["discharge"]) - target) for r in rows) / target
    qout = max(abs(float(r["discharge_outlet"]) - target) for r in rows) / target
    print("\ndischarge over %d steps: inlet within %.2e, outlet within %.2e of the target (bound 0.5 %%): %s" % (
        len(rows), qin, qout, "within" if max(qin, qout) <= 0.005 else "NOT within"))
    t = np.array([float(r["time"]) for r in rows])
    div = np.array([float(r["max_divergence"]) for r in rows])
    span = t[-1] / 50.0 * 5
    early = div[(t > span) & (t <= 2 * span)]
    late = div[t > t[-1] - span]
    print("largest divergence: flow-throughs 5-10 %.3g (mean %.3g), last 5 %.3g (mean %.3g)" % (
        early.max(), early.mean(), late.max(), late.mean()))
    umax = np.array([float(r["max_u"]) for r in rows])
    print("largest |u|: flow-throughs 5-10 %.3g, last 5 %.3g" % (umax[(t > span) & (t <= 2 * span)].max(),
                                                                umax[t > t[-1] - span].max()))
    print("u' by the outlet over u' mid-reach, mean over 0.1 < z/h < 0.9: %.3f (a reflection raises it)" % (
        float(np.mean(out[1][water] / mid[1][water]))))


main()
