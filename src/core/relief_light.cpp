// The relief light's vector, from the library's own sine and cosine.
#include "core/relief_light.h"

#include "core/kmath.h"

namespace kivcore {

ReliefLight relief_light(double azimuth, double elevation, unsigned depth) {
    const double az = azimuth * kmath::kDegToRad, el = elevation * kmath::kDegToRad;
    const double lx = kmath::cos(az) * kmath::cos(el) * 255.9;
    const double ly = kmath::sin(az) * kmath::cos(el) * 255.9;
    const double lz = kmath::sin(el) * 255.9;
    const int nz = static_cast<int>(1530u / depth);  // 6 * 255 over the relief depth
    const int flat = static_cast<int>(lz);
    return ReliefLight{lx, ly, nz * lz, static_cast<double>(nz * nz), flat < 0 ? 0 : (flat > 255 ? 255 : flat)};
}

}  // namespace kivcore
