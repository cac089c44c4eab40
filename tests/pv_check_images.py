# Checks that pictures are not empty: each PNG has many colours and a fair
# share of pixels that are not background white.
#   pvpython pv_check_images.py PNG...
import sys

from vtkmodules.util.numpy_support import vtk_to_numpy
from vtkmodules.vtkIOImage import vtkPNGReader

ok = True
for path in sys.argv[1:]:
    reader = vtkPNGReader()
    reader.SetFileName(path)
    reader.Update()
    image = reader.GetOutput()
    pixels = vtk_to_numpy(image.GetPointData().GetScalars())[:, :3] if image.GetNumberOfPoints() else None
    if pixels is None:
        print("%s: unreadable" % path)
        ok = False
        continue
    colours = len({tuple(p) for p in pixels[:: max(1, len(pixels) // 20000)]})
    drawn = float((pixels.min(axis=1) < 235).mean())
    print("%s: %d x %d, %d colours, %.0f %% drawn" % (path, *image.GetDimensions()[:2], colours, 100 * drawn))
    ok = ok and colours >= 50 and drawn >= 0.01
sys.exit(0 if ok else 1)
