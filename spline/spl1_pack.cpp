#include "base/checked_size.h"
#include "base/module_id.h"

#include "spline/spline_object.h"

#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

/// The offsets come first in `values`, then the matrix row by row.
struct SplineLX {
    int32_t dimension; ///< 0 while empty
    float *values;
};

namespace
{

/// The header of a packet. The control points follow if there are any and a type is defined, then the
/// arc table if it is valid; neither follows when the point count is below 1.
struct PacketHeader {
    uint32_t magic;
    int32_t defined;
    int32_t form;
    int32_t kind;
    int32_t degree;
    int32_t dimension;
    float cardinalScale;
    int32_t pointCount;
    int32_t spaceSet;
    int32_t space;
    int32_t tableValid;
    int32_t intervals;
    int32_t tableFlags;
    float accuracy;
    float achievedError;
    float arcReference;
};
static_assert(offsetof(PacketHeader, pointCount) == 28 && offsetof(PacketHeader, intervals) == 44);
static_assert(offsetof(PacketHeader, arcReference) == 60 && sizeof(PacketHeader) == 64);

constexpr uint32_t packetMagic = 0x5331706B; // "kp1S" in the packet
/// What PacketSize adds to the arrays. Eight bytes more than the header: readers of old allocate so.
constexpr uint32_t reportedBase = 72;

/// What of an object goes into a packet. A packet without points announces none.
struct PacketShape {
    int32_t pointFloats = 0;
    int32_t tableFloats = 0;
    int32_t pointCount;
    int32_t tableValid;

    explicit PacketShape(const Spline1 *spline) : pointCount(spline->pointCount), tableValid(spline->tableValid)
    {
        if (pointCount >= 1 && spline->defined == 1 &&
            (!hasPoints(spline) || !floatsNeeded(pointCount, spline->dimension, pointFloats)))
            pointCount = 0;
        if (pointCount >= 1 && (!hasArcTable(spline) || !arcTableSize(spline->intervals, tableFloats)))
            tableValid = 0;
    }

    uint32_t reportedSize() const
    {
        return reportedBase + sizeof(float) * floats();
    }

private:
    uint32_t floats() const
    {
        return static_cast<uint32_t>(pointFloats) + static_cast<uint32_t>(tableFloats);
    }
};

PacketHeader headerOf(const Spline1 *spline, const PacketShape &shape)
{
    return {.magic = packetMagic,
            .defined = spline->defined,
            .form = spline->form,
            .kind = spline->kind,
            .degree = spline->degree,
            .dimension = spline->dimension,
            .cardinalScale = static_cast<float>(spline->cardinalScale),
            .pointCount = shape.pointCount,
            .spaceSet = spline->spaceSet,
            .space = spline->space,
            .tableValid = shape.tableValid,
            .intervals = spline->intervals,
            .tableFlags = spline->tableFlags,
            .accuracy = static_cast<float>(spline->accuracy),
            .achievedError = static_cast<float>(spline->achievedError),
            .arcReference = static_cast<float>(spline->arcReference)};
}

void takeHeader(Spline1 *spline, const PacketHeader &header)
{
    spline->defined = header.defined;
    spline->form = header.form;
    spline->kind = header.kind;
    spline->degree = header.degree;
    spline->dimension = header.dimension;
    spline->cardinalScale = static_cast<double>(header.cardinalScale);
    spline->pointCount = header.pointCount;
    spline->spaceSet = header.spaceSet;
    spline->space = header.space;
    spline->tableValid = header.tableValid;
    spline->intervals = header.intervals;
    spline->tableFlags = header.tableFlags;
    spline->accuracy = static_cast<double>(header.accuracy);
    spline->achievedError = static_cast<double>(header.achievedError);
    spline->arcReference = static_cast<double>(header.arcReference);
}

size_t bytesOf(int32_t floats)
{
    return static_cast<size_t>(floats) * sizeof(float);
}

/// Floats of an affine map: the offsets and the matrix.
/// @return false when they do not fit the address space
bool lxFloats(int32_t dimension, size_t &floats)
{
    auto n = static_cast<size_t>(dimension);
    size_t bytes = 0;
    return general::checkedProduct(n + 1, n, floats) && general::checkedProduct(floats, sizeof(float), bytes);
}

bool resizeLX(SplineLX *lx, int32_t dimension)
{
    size_t floats = 0;
    if (dimension == lx->dimension)
        return true;
    free(lx->values);
    lx->values = nullptr;
    lx->dimension = 0;
    if (!lxFloats(dimension, floats))
        return false;
    lx->values = static_cast<float *>(malloc(floats * sizeof(float)));
    if (lx->values == nullptr)
        return false;
    lx->dimension = dimension;
    return true;
}

} // namespace

uint32_t Spline1PacketSize(const Spline1 *spline, uint32_t *size)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (size == nullptr)
        return SPLINE_BAD_ARG;

    *size = PacketShape(spline).reportedSize();
    return SPLINE_OK;
}

uint32_t Spline1Pack(const Spline1 *spline, uint32_t bufferSize, void *buffer)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    PacketShape shape(spline);
    if (shape.reportedSize() > bufferSize || buffer == nullptr)
        return SPLINE_BAD_ARG;

    PacketHeader header = headerOf(spline, shape);
    auto *bytes = static_cast<unsigned char *>(buffer);
    memcpy(bytes, &header, sizeof header);
    bytes += sizeof header;
    if (shape.pointFloats > 0)
        memcpy(bytes, spline->points, bytesOf(shape.pointFloats));
    bytes += bytesOf(shape.pointFloats);
    if (shape.tableFloats > 0)
        memcpy(bytes, spline->table, bytesOf(shape.tableFloats));
    return SPLINE_OK;
}

uint32_t Spline1Unpack(const void *packet, Spline1 *spline)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (packet == nullptr)
        return SPLINE_BAD_ARG;
    const auto *bytes = static_cast<const unsigned char *>(packet);
    PacketHeader header;
    memcpy(&header, bytes, sizeof header.magic);
    if (header.magic != packetMagic)
        return SPLINE_BAD_ARG;

    memcpy(&header, bytes, sizeof header);
    bytes += sizeof header;
    takeHeader(spline, header);
    freeBuffers(spline);
    if (header.pointCount < 1)
        return SPLINE_OK;
    if (header.defined == 1 && header.dimension >= 1) {
        int32_t floats = 0;
        if (!floatsNeeded(header.pointCount, header.dimension, floats) ||
            !growFloats(spline->points, spline->pointCapacity, floats))
            return SPLINE_NO_MEMORY;
        memcpy(spline->points, bytes, bytesOf(floats));
        bytes += bytesOf(floats);
    }
    if (header.tableValid == 1) {
        int32_t floats = 0;
        if (!arcTableSize(header.intervals, floats) || !growArcTable(spline))
            return SPLINE_NO_MEMORY;
        memcpy(spline->table, bytes, bytesOf(floats));
    }
    return SPLINE_OK;
}

uint32_t Spline1LinXform(Spline1 *spline, const SplineLX *lx)
{
    // A bad object is a bad argument here, unlike everywhere else; callers test for it.
    if (!isLive(spline) || lx == nullptr)
        return SPLINE_BAD_ARG;
    if (!hasPoints(spline) || spline->defined != 1 || lx->dimension < 1 || lx->values == nullptr)
        return SPLINE_BAD_ARG;
    auto dimension = static_cast<size_t>(spline->dimension);
    auto columns = static_cast<size_t>(lx->dimension);
    size_t common = dimension < columns ? dimension : columns;
    if (!growFloats(spline->scratch, spline->scratchCapacity, static_cast<int32_t>(common)))
        return SPLINE_NO_MEMORY;

    const float *offsets = lx->values;
    float *mapped = spline->scratch;
    float *point = spline->points;
    for (int32_t i = 0; i < spline->pointCount; ++i, point += dimension) {
        const float *row = lx->values + columns;
        for (size_t r = 0; r < common; ++r, row += columns) {
            auto sum = static_cast<double>(offsets[r]);
            for (size_t c = 0; c < common; ++c)
                sum += static_cast<double>(row[c]) * static_cast<double>(point[c]);
            mapped[r] = static_cast<float>(sum);
        }
        memcpy(point, mapped, common * sizeof(float));
    }
    discardMeasurements(spline);
    return SPLINE_OK;
}

SplineLX *SplineCreateLX(void)
{
    return static_cast<SplineLX *>(calloc(1, sizeof(SplineLX)));
}

uint32_t SplineDeleteLX(SplineLX *lx)
{
    if (lx == nullptr)
        return SPLINE_BAD_ARG;

    free(lx->values);
    free(lx);
    return SPLINE_OK;
}

uint32_t SplineEncodeLX(SplineLX *lx, int32_t n, const double *matrix, const double *offsets)
{
    if (lx == nullptr || n < 1 || matrix == nullptr || offsets == nullptr)
        return SPLINE_BAD_ARG;
    if (!resizeLX(lx, n))
        return SPLINE_NO_MEMORY;

    auto size = static_cast<size_t>(n);
    float *value = lx->values;
    for (size_t i = 0; i < size; ++i)
        *value++ = static_cast<float>(offsets[i]);
    for (size_t i = 0; i < size * size; ++i)
        *value++ = static_cast<float>(matrix[i]);
    return SPLINE_OK;
}

uint32_t SplineDecodeLX(const SplineLX *lx, int32_t *n, double *matrix, double *offsets)
{
    if (lx == nullptr || n == nullptr)
        return SPLINE_BAD_ARG;

    *n = lx->dimension;
    auto size = static_cast<size_t>(lx->dimension);
    for (size_t i = 0; offsets != nullptr && i < size; ++i)
        offsets[i] = static_cast<double>(lx->values[i]);
    for (size_t i = 0; matrix != nullptr && i < size * size; ++i)
        matrix[i] = static_cast<double>(lx->values[size + i]);
    return SPLINE_OK;
}
