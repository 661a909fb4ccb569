#include "terrainDbFactory/DtLayerColumns.h"

#include <ogrsf_frmts.h>

#include <cmath>
#include <limits>

#include "gdb/DtVectorNetwork.h"

namespace {

// The attributes the loader derives for every object, interned once.
struct DerivedNames {
    DtSymbolString ecc{"ECC"};
    DtSymbolString width{"GDB_Width"};
    DtSymbolString length{"GDB_Length"};
    DtSymbolString height{"DtHeight"};
    DtSymbolString orientation{"DtOrientation"};
};
const DerivedNames& derived() {
    static const DerivedNames names;
    return names;
}

// Whole degrees of a heading as an int; a value no int holds (or NaN) has none.
bool wholeDegrees(double value, int& degrees) {
    const double rounded = std::round(value);
    if (!(rounded >= std::numeric_limits<int>::min() && rounded <= std::numeric_limits<int>::max()))
        return false;
    degrees = static_cast<int>(rounded);
    return true;
}

}  // namespace

DtLayerColumns::DtLayerColumns(OGRFeatureDefn& definition, DtAttributeTable& table,
                               DtVectorNetwork& network, const CodeChoice& codes)
    : table_(table), network_(network) {
    addFieldColumns(definition);
    addDerivedColumns(definition, codes);
}

void DtLayerColumns::addFieldColumns(OGRFeatureDefn& definition) {
    for (int i = 0; i < definition.GetFieldCount(); ++i) {
        const OGRFieldDefn& field = *definition.GetFieldDefn(i);
        // The network keeps its fields' names: they go with it.
        const DtSymbolString name = DtSymbolString::stored(network_.internText(field.GetNameRef()));
        switch (field.GetType()) {
            case OFTInteger:
                fieldSlots_.push_back(
                    {Stored::Integer, table_.addColumn(name, DtNetworkAttribute::Integer), 0});
                break;
            case OFTInteger64: {
                const uint32_t slot = table_.addColumn(name, DtNetworkAttribute::Integer);
                fieldSlots_.push_back(
                    {Stored::Integer64, slot, table_.addColumn(name, DtNetworkAttribute::Double)});
                break;
            }
            case OFTReal:
                fieldSlots_.push_back(
                    {Stored::Double, table_.addColumn(name, DtNetworkAttribute::Double), 0});
                break;
            default:  // texts, and dates and the rest as their text
                fieldSlots_.push_back(
                    {Stored::Text, table_.addColumn(name, DtNetworkAttribute::String), 0});
        }
    }
}

// The first of the named fields the layer has, or of the common ones when none is named.
static int codeFieldOf(OGRFeatureDefn& definition, const std::vector<std::string>& named) {
    static const std::vector<std::string> common = {"ECC", "F_CODE", "FCODE", "FACC"};
    for (const std::string& name : named.empty() ? common : named) {
        const int index = definition.GetFieldIndex(name.c_str());
        if (index >= 0)
            return index;
    }
    return -1;
}

void DtLayerColumns::addDerivedColumns(OGRFeatureDefn& definition, const CodeChoice& codes) {
    const int ecc = codeFieldOf(definition, codes.fields);
    codeField_ = ecc;
    const struct {
        int field;
        const DtSymbolString& name;
        int type;
        Stored same;  // the field is kept exactly as the derived attribute reads it
    } derivations[] = {
        {ecc, derived().ecc, DtNetworkAttribute::String, Stored::Text},
        {definition.GetFieldIndex("WID"), derived().width, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("LEN"), derived().length, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("HGT"), derived().height, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("AOO"), derived().orientation, DtNetworkAttribute::Integer,
         Stored::Integer},
    };
    for (const auto& d : derivations) {
        if (d.field < 0)
            continue;
        const FieldSlot& source = fieldSlots_[static_cast<size_t>(d.field)];
        if (source.stored == d.same)
            table_.addAlias(d.name, d.type, source.slot);
        else
            derivedSlots_.push_back({d.field, d.type, table_.addColumn(d.name, d.type)});
    }
    if (codes.given.empty())
        return;
    givenCode_ = network_.internText(codes.given);
    if (ecc < 0) {
        givenCodeSlot_ = table_.addColumn(derived().ecc, DtNetworkAttribute::String);
        return;
    }
    // The code's own slot: the field's, or the one derived from it.
    if (fieldSlots_[static_cast<size_t>(ecc)].stored == Stored::Text)
        givenCodeSlot_ = fieldSlots_[static_cast<size_t>(ecc)].slot;
    for (const DerivedSlot& d : derivedSlots_) {
        if (d.field == ecc && d.type == DtNetworkAttribute::String)
            givenCodeSlot_ = d.slot;
    }
}

bool DtLayerColumns::lacksCode(const OGRFeature& feature) const {
    return codeField_ < 0 || !feature.IsFieldSetAndNotNull(codeField_) ||
           *feature.GetFieldAsString(codeField_) == '\0';
}

// A real that is not finite (a DBF's "inf", GeoJSON's 1e400) says no more than a null
// does, and no value of the network may be NaN or infinite.
void DtLayerColumns::setReal(uint32_t row, uint32_t slot, double value) const {
    if (std::isfinite(value))
        table_.setDouble(row, slot, value);
}

void DtLayerColumns::fill(uint32_t row, OGRFeature& feature) const {
    for (int i = 0; i < static_cast<int>(fieldSlots_.size()); ++i) {
        if (!feature.IsFieldSetAndNotNull(i))
            continue;
        const FieldSlot& field = fieldSlots_[static_cast<size_t>(i)];
        switch (field.stored) {
            case Stored::Integer:
                table_.setInt(row, field.slot, feature.GetFieldAsInteger(i));
                break;
            case Stored::Integer64: {
                const GIntBig value = feature.GetFieldAsInteger64(i);
                if (value >= std::numeric_limits<int>::min() &&
                    value <= std::numeric_limits<int>::max())
                    table_.setInt(row, field.slot, static_cast<int>(value));
                else
                    table_.setDouble(row, field.wideSlot, static_cast<double>(value));
                break;
            }
            case Stored::Double:
                setReal(row, field.slot, feature.GetFieldAsDouble(i));
                break;
            case Stored::Text:
                table_.setText(row, field.slot, network_.internText(feature.GetFieldAsString(i)));
        }
    }
    for (const DerivedSlot& d : derivedSlots_) {
        if (!feature.IsFieldSetAndNotNull(d.field))
            continue;
        if (d.type == DtNetworkAttribute::String) {
            table_.setText(row, d.slot, network_.internText(feature.GetFieldAsString(d.field)));
        } else if (d.type == DtNetworkAttribute::Double) {
            setReal(row, d.slot, feature.GetFieldAsDouble(d.field));
        } else if (int degrees = 0; wholeDegrees(feature.GetFieldAsDouble(d.field), degrees)) {
            table_.setInt(row, d.slot, degrees);
        }
    }
    if (givenCodeSlot_ >= 0 && lacksCode(feature))
        table_.setText(row, static_cast<uint32_t>(givenCodeSlot_), givenCode_);
}
