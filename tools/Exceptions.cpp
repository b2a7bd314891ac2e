// The out-of-line destructors anchor each exception's type information in this
// library, so that a throw in one library is caught by type in another.
#include "interfaces/CalibrationException.h"
#include "interfaces/ImageFileException.h"
#include "interfaces/ImageFormatException.h"
#include "interfaces/ReferenceException.h"

CalibrationException::~CalibrationException() = default;
ImageFileException::~ImageFileException() = default;
ImageFormatException::~ImageFormatException() = default;
ReferenceException::~ReferenceException() = default;
