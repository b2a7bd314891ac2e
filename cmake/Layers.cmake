# The folders of the tree, lowest layer first, and the folders each may include.
# An include names its folder first ("image/ImageAcquisition.h"); the umbrella
# header OrvaneCalibration.h counts as part of calibration/.
set(ORVANE_LAYERED_FOLDERS image interfaces tools io correction parameters calibration apps fuzz python)
set(ORVANE_LAYER_image image)
set(ORVANE_LAYER_interfaces image interfaces)
set(ORVANE_LAYER_tools image interfaces tools)
set(ORVANE_LAYER_io image interfaces tools io)
set(ORVANE_LAYER_correction image interfaces tools correction)
set(ORVANE_LAYER_parameters image interfaces tools parameters)
set(ORVANE_LAYER_calibration image interfaces tools parameters calibration)
set(ORVANE_LAYER_apps image interfaces tools io correction parameters calibration apps)
set(ORVANE_LAYER_fuzz image interfaces tools io correction parameters calibration fuzz)
set(ORVANE_LAYER_python image interfaces tools io correction parameters calibration python)

# Headers that only the libraries' own sources include; they are not installed.
# Every other header of the library folders is public.
set(ORVANE_PRIVATE_HEADERS
    calibration/DefectMapSteps.h
    calibration/CalibrationLifecycle.h
    correction/CorrectionKernels.h
    correction/ReferenceFile.h
    parameters/MeasureGrid.h
    parameters/ModeKeys.h
    calibration/Median7x7.h
    tools/VectorClones.h)
