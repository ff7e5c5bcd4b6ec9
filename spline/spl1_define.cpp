#include "base/handle_magic.h"
#include "base/module_id.h"

#include "spline/spline_object.h"

#include <stdlib.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

using namespace general::spline;

namespace {

constexpr Spline1 newObject{.magic = general::liveMagic<Spline1>,
                            .defined = 0,
                            .form = 0,
                            .kind = 0,
                            .degree = 0,
                            .dimension = 0,
                            .cardinalScale = 0,
                            .spaceSet = 0,
                            .space = 0,
                            .pointCapacity = 0,
                            .pointCount = 0,
                            .points = nullptr,
                            .tableCapacity = 0,
                            .tableValid = 0,
                            .intervals = 16,
                            .tableFlags = 1,
                            .parameterSamples = nullptr,
                            .lengthSamples = nullptr,
                            .table = nullptr,
                            .accuracy = 0.01,
                            .achievedError = errorNotComputed,
                            .arcReference = 0,
                            .scratchCapacity = 0,
                            .scratch = nullptr};

struct Range {
    int32_t first;
    int32_t last;

    constexpr bool holds(int32_t value) const { return value >= first && value <= last; }
};

/// What may be declared, by kind.
struct Validity {
    Range form;
    Range degrees[2];
    Range dimension;
};
constexpr Validity validity[] = {
    {{SPLINE_OPEN, SPLINE_CLOSED}, {{1, 3}, {1, 3}}, {2, 3}}, // uniform B-spline
    {{SPLINE_OPEN, SPLINE_CLOSED}, {{1, 1}, {3, 3}}, {2, 3}}, // cardinal spline
};

bool isValidType(int32_t form, int32_t kind, int32_t degree, int32_t dimension)
{
    if (kind != SPLINE_B && kind != SPLINE_CARDINAL)
        return false;
    const Validity &row = validity[kind];
    return row.form.holds(form) && (row.degrees[0].holds(degree) || row.degrees[1].holds(degree)) &&
           row.dimension.holds(dimension);
}

/// Gives the target, whose buffers are empty, the source's points.
bool copyPoints(const Spline1 *source, Spline1 *target)
{
    int32_t floats = 0;
    if (!hasPoints(source) || source->defined != 1)
        return true;
    if (!floatsNeeded(source->pointCount, source->dimension, floats) ||
        !growFloats(target->points, target->pointCapacity, floats))
        return false;
    memcpy(target->points, source->points, static_cast<size_t>(floats) * sizeof(float));
    return true;
}

/// Gives the target, whose buffers are empty, the source's arc table.
bool copyArcTable(const Spline1 *source, Spline1 *target)
{
    int32_t floats = 0;
    target->tableValid = 0;
    if (!hasArcTable(source))
        return true;
    if (!arcTableSize(source->intervals, floats) || !growArcTable(target))
        return false;
    memcpy(target->table, source->table, static_cast<size_t>(floats) * sizeof(float));
    target->tableValid = 1;
    return true;
}

} // namespace

Spline1 *Spline1Create(void)
{
    auto *spline = static_cast<Spline1 *>(malloc(sizeof(Spline1)));
    if (spline != nullptr)
        *spline = newObject;
    return spline;
}

uint32_t Spline1Destroy(Spline1 *spline)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;

    general::clearMagic(spline->magic);
    freeBuffers(spline);
    free(spline);
    return SPLINE_OK;
}

uint32_t Spline1Verify(const Spline1 *spline)
{
    return isLive(spline) ? 0 : 1;
}

uint32_t Spline1Copy(const Spline1 *source, Spline1 *target)
{
    if (!isLive(source) || !isLive(target))
        return SPLINE_BAD_HANDLE;
    if (source == target)
        return SPLINE_OK;

    freeBuffers(target);
    *target = *source;
    target->points = target->table = target->scratch = nullptr;
    target->parameterSamples = target->lengthSamples = nullptr;
    target->pointCapacity = target->tableCapacity = target->scratchCapacity = 0;
    if (!copyPoints(source, target)) {
        target->pointCount = 0;
        discardMeasurements(target);
        return SPLINE_NO_MEMORY;
    }
    return copyArcTable(source, target) ? SPLINE_OK : SPLINE_NO_MEMORY;
}

uint32_t Spline1Encode(Spline1 *spline, int32_t form, int32_t kind, int32_t degree, int32_t dimension, double tension)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    spline->defined = isValidType(form, kind, degree, dimension) ? 1 : 0;
    if (spline->defined == 0)
        return SPLINE_BAD_ARG;

    double scale = (1 - tension) * 0.5;
    bool same = spline->form == form + openForm && spline->kind == kind && spline->degree == degree &&
                spline->dimension == dimension && spline->cardinalScale == scale;
    if (!same)
        discardMeasurements(spline);
    if (spline->dimension != dimension)
        spline->pointCount = 0; // numbers in another dimension are no points in this one
    spline->form = form + openForm;
    spline->kind = kind;
    spline->degree = degree;
    spline->dimension = dimension;
    spline->cardinalScale = scale;
    return SPLINE_OK;
}

uint32_t Spline1Decode(Spline1 *spline, int32_t *form, int32_t *kind, int32_t *degree, int32_t *dimension,
                       double *tension)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (form == nullptr && kind == nullptr && degree == nullptr && dimension == nullptr && tension == nullptr)
        return SPLINE_BAD_ARG;
    if (spline->defined != 1)
        return SPLINE_BAD_ARG;
    // Only a packet can bring in a type that was never declared.
    bool knownForm = spline->form == openForm || spline->form == closedForm;
    if (!knownForm || !isValidType(spline->form - openForm, spline->kind, spline->degree, spline->dimension)) {
        spline->defined = 0;
        return SPLINE_BAD_ARG;
    }

    if (form != nullptr)
        *form = spline->form - openForm;
    if (kind != nullptr)
        *kind = spline->kind;
    if (degree != nullptr)
        *degree = spline->degree;
    if (dimension != nullptr)
        *dimension = spline->dimension;
    if (tension != nullptr)
        *tension = 1 - 2 * spline->cardinalScale;
    return SPLINE_OK;
}

uint32_t Spline1SetSpace(Spline1 *spline, int32_t space)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (!hasPoints(spline))
        return SPLINE_BAD_ARG;

    spline->spaceSet = space != 0 ? 1 : 0;
    spline->space = space;
    return SPLINE_OK;
}

uint32_t Spline1GetSpace(const Spline1 *spline, int32_t *space)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (space == nullptr)
        return SPLINE_BAD_ARG;

    *space = spline->space;
    return SPLINE_OK;
}

uint32_t Spline1CountPoints(const Spline1 *spline, int32_t *count)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (count == nullptr)
        return SPLINE_BAD_ARG;

    *count = spline->pointCount;
    return SPLINE_OK;
}

uint32_t Spline1SetAcc(Spline1 *spline, double accuracy, int32_t intervals)
{
    if (!isLive(spline))
        return SPLINE_BAD_HANDLE;
    if (!(accuracy > 0 && accuracy < 1) || intervals < 1)
        return SPLINE_BAD_ARG;

    if (accuracy != spline->accuracy || intervals != spline->intervals)
        discardMeasurements(spline);
    spline->accuracy = accuracy;
    spline->intervals = intervals;
    return SPLINE_OK;
}
