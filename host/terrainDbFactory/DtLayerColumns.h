// DtLayerColumns: where the fields of one layer go in its attribute table. Every field
// becomes an attribute by its own name (text 3, integer 7, real 8; a 64-bit integer
// beyond 32 bits a real); the attributes the engine reads under names of its own come
// from the common feature-attribute fields: "ECC" (ECC, else F_CODE, else FCODE, else FACC,
// or the fields a host tool names instead; objects without a code may be given one),
// "GDB_Width" (WID), "GDB_Length" (LEN), "DtHeight" (HGT), "DtOrientation" (AOO, rounded
// to whole degrees). One that reads a field unchanged shares its slot.
//
//   DtLayerColumns columns(*layer.GetLayerDefn(), network.addTable(), network);
//   columns.fill(table.addRow(type, fid), feature);
//
// Internal to the loader; not installed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class DtAttributeTable;
class DtVectorNetwork;
class OGRFeature;
class OGRFeatureDefn;

class DtLayerColumns {
public:
    // Where "ECC" comes from and what objects without one get.
    struct CodeChoice {
        std::vector<std::string> fields;  // empty: the common ones
        std::string given;                // for objects without a code; empty: none
    };

    // Adds the columns to `table`, which belongs to `network` (it keeps the texts).
    DtLayerColumns(OGRFeatureDefn& definition, DtAttributeTable& table, DtVectorNetwork& network,
                   const CodeChoice& codes = CodeChoice());

    // The feature's values into a row of the table.
    void fill(uint32_t row, OGRFeature& feature) const;

    // The field "ECC" is read from, or -1.
    int codeField() const { return codeField_; }
    // Whether the feature has no code of its own (none, null or empty).
    bool lacksCode(const OGRFeature& feature) const;

private:
    // Where a field's value goes. A 64-bit field has two slots: its values that fit in an
    // int are integers, the others doubles.
    enum class Stored { Integer, Integer64, Double, Text };
    struct FieldSlot {
        Stored stored;
        uint32_t slot;
        uint32_t wideSlot;  // Integer64 only: the double slot
    };
    // A derived attribute that cannot share its field's slot: its own, filled per row.
    struct DerivedSlot {
        int field;
        int type;
        uint32_t slot;
    };

    void addFieldColumns(OGRFeatureDefn& definition);
    void addDerivedColumns(OGRFeatureDefn& definition, const CodeChoice& codes);
    void setReal(uint32_t row, uint32_t slot, double value) const;

    DtAttributeTable& table_;
    DtVectorNetwork& network_;
    std::vector<FieldSlot> fieldSlots_;
    std::vector<DerivedSlot> derivedSlots_;
    int codeField_ = -1;
    // Where a given code goes, and its text as the network keeps it; no slot: none given.
    int64_t givenCodeSlot_ = -1;
    const std::string* givenCode_ = nullptr;
};
