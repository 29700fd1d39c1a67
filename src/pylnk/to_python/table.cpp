#include "to_python/table.h"

#include "buffer/buffer_bridge.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

bool isNumericOrLogical(vd::ArrayType type) {
    return type == vd::ArrayType::LOGICAL ||
           (type >= vd::ArrayType::DOUBLE && type <= vd::ArrayType::COMPLEX_SINGLE);
}

// A column of dates or durations: its NumPy array only needs flattening.
bool isDateOrDurationArray(const vd::Array& column) {
    if (column.getType() != vd::ArrayType::STRUCT) {
        return false;
    }
    for (const auto& name : vd::StructArray(column).getFieldNames()) {
        if (name.str() == "VX_PylnkSP_DatetimeArray" || name.str() == "VX_PylnkSP_DurationArray") {
            return true;
        }
    }
    return false;
}

}  // namespace

ConversionResult convertTableColumn(vd::Array column) {
    if (isNumericOrLogical(column.getType())) {
        // Whatever its shape, straight from the host's storage: pandas copies
        // each column into a block of its own, so the array.array of a vector
        // would be a second copy.
        H array = dataframe::pyCreateNumpyAsArray(createBufferFromArray(std::move(column)));
        return made(dataframe::pyFlattenNumpyData(array.get()));
    }
    ConversionResult converted = convertToPython(column);
    if (converted.object && isDateOrDurationArray(column)) {
        return made(dataframe::pyFlattenNumpyData(converted.object.get()));
    }
    return converted;
}

ConversionResult convertTable(vd::StructArray marker) {
    if (auto failure = importFailure(u"pandas", u"VELTRAPyHost::PandasImportFailed", u"table")) {
        return *failure;
    }
    vd::StructArray table = marker[0]["VX_PylnkSP_VELTRATableAsStruct"];
    vd::StructArray columns = table[0]["tableStruct"];
    vd::TypedArray<vd::Array> variableNames = table[0]["variableNames"];

    std::vector<H> labels;
    labels.reserve(variableNames.getNumberOfElements());
    for (size_t k = 0; k < variableNames.getNumberOfElements(); ++k) {
        vd::Array name = variableNames[0][k];
        ConversionResult label = convertToPython(std::move(name));
        if (!label.object) {
            return label;
        }
        labels.push_back(std::move(label.object));
    }

    H series = mapping::pyCreateDict();
    for (const auto& field : columns.getFieldNames()) {
        H key = primitive::pyCreateString(field.str());
        vd::Array data = columns[0][field.str()];
        ConversionResult column = convertTableColumn(std::move(data));
        if (!column.object) {
            return column;
        }
        H columnSeries = dataframe::pyCreatePandasSeriesForDataFrameColumn(column.object);
        mapping::pyMappingSetKey(series.get(), key.get(), columnSeries.get());
    }
    H frame = dataframe::pyCreateDataFrame(series);
    // The labels replace the field names by position, so dimensionRow names
    // a column by its label.
    frame = dataframe::pySetDataFrameColumnLabel(frame.get(), sequence::pyTupleCreate(labels));
    vd::TypedArray<bool> rowNamesFound = table[0]["rowNamesFound"];
    if (rowNamesFound[0]) {
        const std::string rowLabel = vd::CharArray(table[0]["dimensionRow"]).toAscii();
        frame = dataframe::pySetDataFrameIndex(frame.get(), primitive::pyCreateString(rowLabel));
    }
    return made(std::move(frame));
}

}  // namespace pylnk
