# Loaded by riverles-paraview into ParaView (or run by pvpython to check it):
# opens the case named by RIVERLES_CASE with the CGNS reader, every point
# array of its results ticked, the velocity's magnitude shown at the last
# time step.
import os

import paraview.simple as pv

case = os.environ["RIVERLES_CASE"]
reader = pv.CGNSSeriesReader(registrationName=os.path.basename(case), FileNames=[case])
reader.UpdatePipelineInformation()
reader.PointArrayStatus = list(reader.PointArrayStatus.Available)
scene = pv.GetAnimationScene()
scene.UpdateAnimationUsingDataTimeSteps()
scene.AnimationTime = reader.TimestepValues[-1] if reader.TimestepValues else 0.0
view = pv.GetActiveViewOrCreate("RenderView")
shown = pv.Show(reader, view)
if "Velocity" in reader.PointData.keys():
    pv.ColorBy(shown, ("POINTS", "Velocity", "Magnitude"))
    shown.RescaleTransferFunctionToDataRange(True, False)
    shown.SetScalarBarVisibility(view, True)
view.ResetCamera()
pv.Render(view)
print("riverles-paraview: %s, %d results, arrays %s" % (
    case, len(reader.TimestepValues or []), ", ".join(sorted(reader.PointData.keys()))))
