#ifndef ORVANE_IMAGE_ROI_H
#define ORVANE_IMAGE_ROI_H

// A rectangle of an image by its first row and column and its size, in 16 bits.
// Pixel (left, top) is element top * imageWidth + left. Note the order: rows first.
class ROI {
public:
    ROI() = default;
    ROI(unsigned short top, unsigned short left, unsigned short height, unsigned short width)
        : top(top), left(left), height(height), width(width) {}

    unsigned short top = 0;
    unsigned short left = 0;
    unsigned short height = 0;
    unsigned short width = 0;

    bool operator==(const ROI& other) const {
        return top == other.top && left == other.left && height == other.height &&
               width == other.width;
    }
    bool operator!=(const ROI& other) const { return !(*this == other); }
};

#endif
