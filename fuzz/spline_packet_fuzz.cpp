// The input is a packet. One that announces more bytes than there are is left out, as a program that
// receives packets has to.

#include "fuzz/fuzz_input.h"

#include "general/spline.h"

#include <vector>

namespace {

constexpr size_t headerSize = 64;

int32_t field(const std::string &packet, size_t offset)
{
    int32_t value;
    std::memcpy(&value, packet.data() + offset, sizeof value);
    return value;
}

/// Bytes that Spline1Unpack reads of a packet with this header.
double announcedSize(const std::string &packet)
{
    double points = field(packet, 28);
    double size = headerSize;
    if (points >= 1 && field(packet, 4) == 1)
        size += 4 * std::max(0.0, points * field(packet, 20));
    if (points >= 1 && field(packet, 40) == 1)
        size += 20 * std::max(0.0, static_cast<double>(field(packet, 44))) + 12;
    return size;
}

/// Every call that looks at what the packet brought.
void useEverything(Spline1 *spline)
{
    constexpr int32_t count = 5;
    const float params[count] = {0, 0.5F, -1, 1e30F, 2.25F};
    double points[3 * count];
    float numbers[count];
    double error;
    int32_t intervals;
    Spline1DPoint(spline, count, params, points);
    Spline1DTangent(spline, count, nullptr, points);
    Spline1ArcLen(spline, count, params, numbers);
    Spline1Index(spline, count, params, numbers);
    Spline1GetAcc(spline, &error, &intervals);
}

} // namespace

void runWith(const std::string &input)
{
    if (input.size() < headerSize || announcedSize(input) > static_cast<double>(input.size()))
        return;
    if (field(input, 20) < 1 || field(input, 20) > 3)
        return; // evaluation would fill larger arrays than the ones above
    if (field(input, 44) > 1000)
        return; // measuring takes time in proportion to the intervals, which the packet chooses

    Spline1 *spline = Spline1Create();
    fuzz::require(spline != nullptr, "there is memory");
    std::vector<char> exact(input.begin(), input.end());
    if (Spline1Unpack(exact.data(), spline) == SPLINE_OK) {
        uint32_t size = 0;
        fuzz::require(Spline1PacketSize(spline, &size) == SPLINE_OK, "what was unpacked can be packed");
        std::vector<char> packet(size);
        fuzz::require(Spline1Pack(spline, size, packet.data()) == SPLINE_OK, "the size that was told is enough");
        fuzz::require(std::memcmp(packet.data(), exact.data(), 4) == 0, "packets begin with the magic");
        useEverything(spline);
        double matrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        double offsets[3] = {1, 2, 3};
        SplineLX *map = SplineCreateLX();
        SplineEncodeLX(map, 3, matrix, offsets);
        Spline1LinXform(spline, map);
        SplineDeleteLX(map);
        useEverything(spline);
    }
    fuzz::require(Spline1Destroy(spline) == SPLINE_OK, "the object stays live");
}
