# What the validation fits share: time means of the monitor log, the plane
# means of a statistics file at each height, and the charts.
import csv

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


def time_means(monitor, tstart, columns):
    """The means over time of monitor columns from tstart on, each step
    weighted by its time step (as the statistics are); and the steps."""
    with open(monitor) as f:
        rows = [r for r in csv.DictReader(f) if float(r["time"]) >= tstart]
    weight = sum(float(r["dt"]) for r in rows)
    return [sum(float(r[c]) * float(r["dt"]) for r in rows) / weight for c in columns], len(rows)


def plane_means(stats, names):
    """(z, [plane mean of each named array]) at every node height of a
    statistics file: over every node of the height, the repeated last node
    of x and y left out (periodic).  ParaView joins MeanVelocityX/Y/Z into
    the vector MeanVelocity: those names are read from its components; an
    array that is missing counts 0."""
    reader = pv.CGNSSeriesReader(FileNames=[stats])
    reader.UpdatePipelineInformation()
    reader.Bases = ["Statistics"]
    reader.PointArrayStatus = list(reader.PointArrayStatus.Available)
    reader.UpdatePipeline()
    grid = next(leaves(servermanager.Fetch(reader)))
    dims = [0, 0, 0]
    grid.GetDimensions(dims)
    ni, nj, nk = dims
    pd = grid.GetPointData()
    vector = pd.GetArray("MeanVelocity")

    def getter(name):
        if vector and name.startswith("MeanVelocity") and len(name) == 13:
            c = "XYZ".index(name[-1])
            return lambda n: vector.GetComponent(n, c)
        a = pd.GetArray(name)
        return (lambda n: a.GetValue(n)) if a else (lambda n: 0.0)

    get = [getter(name) for name in names]
    out = []
    for k in range(nk):
        sums, count = [0.0] * len(names), 0
        for j in range(nj - 1):
            for i in range(ni - 1):
                n = (k * nj + j) * ni + i
                for c, g in enumerate(get):
                    sums[c] += g(n)
                count += 1
        out.append((grid.GetPoint(k * ni * nj)[2], [s / count for s in sums]))
    return out


def chart(table, png, title, xtitle, ytitle, x, series, log_x=False):
    """An XY chart of CSV columns against column x, saved as png.  series:
    (column, label, (r, g, b), thickness, dashed, markers) per line."""
    view = pv.CreateView("XYChartView")
    view.ViewSize = [900, 700]
    view.ChartTitle = title
    view.BottomAxisTitle = xtitle
    view.LeftAxisTitle = ytitle
    view.BottomAxisLogScale = 1 if log_x else 0
    d = pv.Show(table, view)
    d.UseIndexForXAxis = 0
    d.XArrayName = x
    d.SeriesVisibility = [s[0] for s in series]
    d.SeriesLabel = [x for s in series for x in (s[0], s[1])]
    d.SeriesColor = [x for s in series for x in (s[0], *("%g" % c for c in s[2]))]
    d.SeriesLineThickness = [x for s in series for x in (s[0], str(s[3]))]
    d.SeriesLineStyle = [x for s in series if s[4] for x in (s[0], "2")]
    d.SeriesMarkerStyle = [x for s in series if s[5] for x in (s[0], "4")]
    pv.Render(view)
    pv.SaveScreenshot(png, view, ImageResolution=[900, 700])
