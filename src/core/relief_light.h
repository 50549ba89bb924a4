// The light of a relief, shared by emboss (filters) and by bumpmap and texturize (effects),
// so that both shade a surface to the same byte.
#ifndef KIV_CORE_RELIEF_LIGHT_H
#define KIV_CORE_RELIEF_LIGHT_H

#include <cmath>

namespace kivcore {

// A surface lit from an azimuth and an elevation: the normal of a 3x3 neighbourhood of
// heights is (Nx, Ny, Nz) with Nx = left column - right column, Ny = bottom row - top row
// (each the sum of three heights) and Nz = 1530 / depth; the shade is the dot product with
// the light vector of length 255.9 over |N|, truncated and clamped to 0..255. A flat
// neighbourhood (Nx = Ny = 0) takes the flat shade trunc(Lz), clamped.
struct ReliefLight {
    double lx, ly;  // Lx and Ly
    double nzlz;    // Nz Lz
    double nz2;     // Nz^2
    int flat;

    int shade(int nx, int ny) const {
        if (nx == 0 && ny == 0) return flat;
        const int d = static_cast<int>(nx * lx + ny * ly + nzlz);
        // Nx^2 + Ny^2 + Nz^2 is an integer below 2^22: exact in double whatever the order.
        const int s = d < 0 ? 0 : static_cast<int>(d / std::sqrt(static_cast<double>(nx * nx + ny * ny) + nz2));
        return s > 255 ? 255 : s;
    }
};

// The light for angles in degrees (finite) and a depth of at least 1; depths above 1530
// give Nz = 0.
ReliefLight relief_light(double azimuth, double elevation, unsigned depth);

}  // namespace kivcore

#endif
