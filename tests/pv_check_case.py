# Opens a run's case file with ParaView's CGNS reader and checks that it is a
# time series with the expected number of steps and the six result arrays;
# then a Tecplot file of the run with ParaView's Tecplot reader: the node grid
# of the case (33 x 9 x 17) and the fields u, v, w, vort, Q, with flow in u.
#   pvpython pv_check_case.py CASEFILE NSTEPS TECPLOTFILE
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

from vtkmodules.vtkIOGeometry import vtkTecplotReader

tec = vtkTecplotReader()
tec.SetFileName(sys.argv[3])
tec.Update()
block = tec.GetOutput().GetBlock(0)
dims = [0, 0, 0]
block.GetDimensions(dims)
pd = block.GetPointData()
names = sorted(pd.GetArrayName(n).lower() for n in range(pd.GetNumberOfArrays()))
u = pd.GetArray("u") or pd.GetArray("U")
umax = max(u.GetValue(n) for n in range(u.GetNumberOfTuples())) if u else 0.0
print("tecplot:", dims, names, "largest u:", umax)
ok = ok and dims == [33, 9, 17] and names == ["q", "u", "v", "vort", "w"] and 0.05 < umax < 1.0
print("OK" if ok else "FAILED")
sys.exit(0 if ok else 1)
