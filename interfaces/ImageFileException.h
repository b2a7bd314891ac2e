#ifndef ORVANE_INTERFACES_IMAGEFILEEXCEPTION_H
#define ORVANE_INTERFACES_IMAGEFILEEXCEPTION_H

#include "interfaces/BaseException.h"

// A debug image file could not be written.
class ImageFileException : public BaseExceptionSimple<ImageFileException> {
public:
    using BaseExceptionSimple<ImageFileException>::BaseExceptionSimple;
    ~ImageFileException() override;
};

#endif
