#ifndef ORVANE_INTERFACES_IMAGEFORMATEXCEPTION_H
#define ORVANE_INTERFACES_IMAGEFORMATEXCEPTION_H

#include "interfaces/BaseException.h"

// An image or an image file of the wrong format.
class ImageFormatException : public BaseExceptionSimple<ImageFormatException> {
public:
    using BaseExceptionSimple<ImageFormatException>::BaseExceptionSimple;
    ~ImageFormatException() override;
};

#endif
