# Opens a run's case file with ParaView's CGNS reader and checks that it is a
# time series with the expected number of steps and the six result arrays.
#   pvpython pv_check_case.py CASEFILE NSTEPS
import sys

from paraview import servermanager
from paraview.simple import CGNSSeriesReader, UpdatePipeline

path, nsteps = sys.argv[1], int(sys.argv[2])
reader = CGNSSeriesReader(FileNames=[path])
reader.UpdatePipelineInformation()
# The reader lists the arrays of the case but loads none until asked.
available = list(reader.PointArrayStatus.Available)
print("arrays offered:", available)
reader.PointArrayStatus = available
tv = reader.TimestepValues
try:
    times = [float(t) for t in tv]
except TypeError:
    times = [float(tv)] if tv is not None else []
print("time steps:", len(times), times[:5], "...")
ok = len(times) == nsteps

UpdatePipeline(time=times[-1] if times else 0.0, proxy=reader)
data = servermanager.Fetch(reader)


def leaves(block):
    if block is None:
        return
    if block.IsA("vtkMultiBlockDataSet"):
        for n in range(block.GetNumberOfBlocks()):
            yield from leaves(block.GetBlock(n))
    else:
        yield block


found = {}
npoints = 0
for leaf in leaves(data):
    pd = leaf.GetPointData()
    for n in range(pd.GetNumberOfArrays()):
        a = pd.GetArray(n)
        found[a.GetName()] = a.GetNumberOfComponents()
    if pd.GetArray("Pressure") is not None:
        npoints = leaf.GetNumberOfPoints()
print("point arrays:", sorted(found.items()), "points:", npoints)
velocity = found.get("Velocity") == 3 or all(n in found for n in ("VelocityX", "VelocityY", "VelocityZ"))
ok = ok and velocity and all(n in found for n in ("Pressure", "Vorticity", "Coherent")) and npoints > 0
print("OK" if ok else "FAILED")
sys.exit(0 if ok else 1)
