#ifndef ORVANE_IMAGE_COORDINATES_H
#define ORVANE_IMAGE_COORDINATES_H

// A pixel position: x is the column, y the row.
struct Coordinates {
    int x;
    int y;

    bool operator==(const Coordinates& other) const { return x == other.x && y == other.y; }
    bool operator!=(const Coordinates& other) const { return !(*this == other); }
};

#endif
