// The input is a packet. One that announces more than there is goes on with its own bytes again, up to a
// few kilobytes; one that announces more than that is left out, as a program that receives packets has to.

#include "fuzz/fuzz_input.h"

#include "general/spline.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace {

constexpr size_t headerSize = 64;
constexpr double largestPacket = 2048;
/// Evaluations of the speed that an input may ask for. Without a bound a single one asks for millions again
/// and again: the library's own bound on the work has a test of its own.
constexpr double mostEvaluations = 2000;

template<typename Field = int32_t>
Field field(const std::string &packet, size_t offset)
{
    Field value;
    std::memcpy(&value, packet.data() + offset, sizeof value);
    return value;
}

/// Where the arc table begins in a packet that holds what its header announces.
double tableOffset(const std::string &packet)
{
    double floats = static_cast<double>(field(packet, 28)) * field(packet, 20);
    return headerSize + (field(packet, 4) == 1 ? 4 * std::max(0.0, floats) : 0);
}

/// Bytes that Spline1Unpack reads of a packet with this header.
double announcedSize(const std::string &packet)
{
    if (field(packet, 28) < 1)
        return headerSize;
    double table = field(packet, 40) == 1 ? 20 * std::max(0.0, static_cast<double>(field(packet, 44))) + 12 : 0;
    return tableOffset(packet) + table;
}

/// Whatever belongs to a piece's coefficients, a length lies between the lengths of the table.
void requireBounded(const float (&results)[5], const std::vector<float> &samples)
{
    if (samples.empty() ||
        !std::all_of(samples.begin(), samples.end(), [](float sample) { return std::isfinite(sample); }))
        return;
    auto [least, most] = std::minmax_element(samples.begin(), samples.end());
    for (float result : results)
        fuzz::require(result >= *least && result <= *most, "look-ups stay inside the table");
}

/// Look-ups in the packet's own table.
void lookUp(Spline1 *spline, const std::string &packet)
{
    float results[5] = {0, 0.5F, -1, 1e30F, 2.25F};
    std::vector<float> samples; // as far as they are stored and not computed
    if ((field(packet, 48) & 2) == 0) {
        int32_t intervals = field(packet, 44);
        samples.resize(static_cast<size_t>(intervals + 1));
        std::memcpy(samples.data(), packet.data() + static_cast<size_t>(tableOffset(packet)) + 16 * intervals + 8,
                    samples.size() * sizeof(float));
    }
    for (int round = 0; round < 2; ++round) { // the second time with what the first has found
        fuzz::require(Spline1ArcLen(spline, 5, results, results) == SPLINE_OK, "the table is there");
        requireBounded(results, samples);
        fuzz::require(Spline1Index(spline, 5, round == 0 ? results : nullptr, results) == SPLINE_OK, "it still is");
    }
}

void evaluate(Spline1 *spline)
{
    constexpr int32_t count = 5;
    const float params[count] = {0, 0.5F, -1, 1e30F, 2.25F};
    const int32_t indices[count] = {0, 1, -1, INT32_MAX, 2};
    double points[3 * count];
    SplineCoord records[count];
    Spline1DPoint(spline, count, params, points);
    Spline1DTangent(spline, count, nullptr, points);
    Spline1CPoint(spline, count, nullptr, records);
    Spline1CTangent(spline, count, params, records);
    Spline1DCtl(spline, count, indices, points);
    Spline1CCtl(spline, 2, nullptr, records);
    Spline1DDecimate(spline, 2, points, 3, points + 6);
    Spline1CDecimate(spline, 3, records, 2, records + 3);
}

/// Makes the curve small enough to be measured in few steps: within the unit square, or not finite.
bool shrink(Spline1 *spline, const std::string &packet)
{
    if (field(packet, 4) != 1 || !(std::fabs(field<float>(packet, 24)) < 4))
        return false;
    int32_t count = field(packet, 28);
    std::vector<double> values(static_cast<size_t>(std::max(0, count) * field(packet, 20)));
    if (Spline1DCtl(spline, count, nullptr, values.data()) != SPLINE_OK)
        return false;
    double largest = 1;
    for (double value : values)
        largest = std::isfinite(value) ? std::max(largest, std::fabs(value)) : largest;
    double scale = 1 / largest;
    double matrix[9] = {scale, 0, 0, 0, scale, 0, 0, 0, scale};
    double offsets[3] = {0, 0, 0};
    SplineLX *map = SplineCreateLX();
    SplineEncodeLX(map, 3, matrix, offsets);
    bool mapped = Spline1LinXform(spline, map) == SPLINE_OK;
    SplineDeleteLX(map);
    return mapped;
}

void measure(Spline1 *spline, const std::string &packet)
{
    double error;
    int32_t intervals;
    float params[3];
    double accuracy = static_cast<double>(field<float>(packet, 52));
    Spline1SetAcc(spline, accuracy > 0.2 && accuracy < 1 ? accuracy : 0.2, 1 + (field(packet, 44) & 7));
    Spline1GetAcc(spline, &error, &intervals);
    if (Spline1Index(spline, 3, nullptr, params) == SPLINE_OK)
        Spline1ArcLen(spline, 3, params, params);
    // The search's least table has 64 intervals, many times those above: one input in eight has one.
    if (std::hash<std::string>()(packet) % 8 == 0)
        Spline1CalcAcc(spline, 0, 0.5, &error, &intervals);
}

/// Whether the achieved error can be told from the packet's own table in few steps.
bool isCheapToEstimate(const std::string &packet)
{
    float step = field<float>(packet, 60);
    return field(packet, 44) < 100 && !(step >= 0 && static_cast<double>(step) < field(packet, 28) / mostEvaluations);
}

void useEverything(Spline1 *spline, const std::string &packet)
{
    bool hasTable = field(packet, 28) >= 1 && field(packet, 40) == 1;
    evaluate(spline);
    if (hasTable) {
        lookUp(spline, packet);
        double error;
        int32_t intervals;
        if (isCheapToEstimate(packet))
            Spline1GetAcc(spline, &error, &intervals);
    }
    bool isSmall = shrink(spline, packet);
    if (isSmall)
        measure(spline, packet);
    int32_t choice = field(packet, 36) ^ packet.back(); // of another type
    Spline1Encode(spline, choice & 1, choice >> 1 & 1, choice >> 2 & 3, 2 + (choice >> 4 & 1), 0.5);
    evaluate(spline);
    float params[3];
    Spline1SetAcc(spline, 0.5, 1);
    if (isSmall)
        Spline1Index(spline, 3, nullptr, params);
}

std::string packed(const Spline1 *spline)
{
    uint32_t size = 0;
    fuzz::require(Spline1PacketSize(spline, &size) == SPLINE_OK, "what was unpacked can be packed");
    std::string packet(size, '\0');
    fuzz::require(Spline1Pack(spline, size, packet.data()) == SPLINE_OK, "the size that was told is enough");
    return packet;
}

} // namespace

void runWith(const std::string &input)
{
    if (input.size() < headerSize)
        return;
    if (field(input, 20) < 1 || field(input, 20) > 3)
        return; // evaluation would fill larger arrays than the ones above
    double announced = announcedSize(input);
    if (announced > largestPacket)
        return;
    std::string packet = input;
    while (static_cast<double>(packet.size()) < announced)
        packet.append(input, 0, static_cast<size_t>(announced) - packet.size());

    Spline1 *spline = Spline1Create();
    Spline1 *copy = Spline1Create();
    fuzz::require(spline != nullptr && copy != nullptr, "there is memory");
    std::vector<char> exact(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(announced));
    if (Spline1Unpack(exact.data(), spline) == SPLINE_OK) {
        std::string again = packed(spline);
        fuzz::require(std::memcmp(again.data(), exact.data(), 4) == 0, "packets begin with the magic");
        fuzz::require(Spline1Copy(spline, copy) == SPLINE_OK && (announced == headerSize || packed(copy) == again),
                      "a copy of a curve makes the same packet");
        useEverything(spline, packet);
        evaluate(copy);
        fuzz::require(Spline1Unpack(again.data(), copy) == SPLINE_OK, "what was packed can be unpacked");
    }
    fuzz::require(Spline1Destroy(spline) == SPLINE_OK && Spline1Destroy(copy) == SPLINE_OK, "the objects stay live");
}
