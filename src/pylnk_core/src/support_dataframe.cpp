#include "support_module.h"

namespace pylnk_core::detail {

// The pandas and NumPy side of tables and string data.
const char* const kDataframeSupportSource = R"PY(
def df_frame(columns):
    import pandas
    return pandas.DataFrame(columns)


def df_series(column):
    import pandas
    return pandas.Series(column)


def df_string_series(items):
    import pandas
    return pandas.Series(list(items), dtype='string')


def df_categorical(items):
    import pandas
    return pandas.Categorical(list(items))


def df_asarray(value):
    import numpy
    return numpy.asarray(value)


def df_flatten(data):
    import numpy
    return numpy.ravel(data, order='F')


def df_to_list(data):
    import numpy
    if not isinstance(data, numpy.ndarray) and hasattr(data, 'to_numpy'):
        # The tolist() of pandas' masked arrays gives NumPy scalars; an
        # object array holds Python's own, and the missing values as they are.
        data = data.to_numpy(dtype=object)
    tolist = getattr(data, 'tolist', None)
    return tolist() if tolist is not None else list(data)


def df_to_frame(series):
    return series.to_frame()


def df_reset_index(frame):
    import pandas
    if not isinstance(frame, pandas.DataFrame):
        raise TypeError('a pandas DataFrame or Series is needed, not '
                        + type(frame).__name__)
    # reset_index() copies every column; a shallow copy keeps the caller's
    # frame as it was and shares its data.
    result = frame.copy(deep=False)
    result.flags.allows_duplicate_labels = True
    result.reset_index(inplace=True)
    return result


def df_set_index(frame, label):
    return frame.set_index(label)


def df_relabel(frame, labels):
    import pandas
    result = frame.copy(deep=False)
    result.columns = pandas.Index(list(labels), tupleize_cols=False)
    return result


def df_labels(frame):
    return frame.columns.tolist()


def df_item(container, label):
    return container[label]


def df_pop(frame, label):
    return frame.pop(label)


def df_isna(data):
    import pandas
    return pandas.isna(data)


def df_plain_numbers(values):
    import numpy
    if not isinstance(values, numpy.ndarray):
        # A masked array of pandas' nullable dtypes (Int64, Float32, boolean):
        # its plain dtype when nothing is missing, NaN where a float is.
        dtype = values.dtype.numpy_dtype
        if not values.isna().any():
            values = values.to_numpy(dtype)
        elif dtype.kind == 'f':
            values = values.to_numpy(dtype, na_value=numpy.nan)
        else:
            return None
    # Half floats and the other byte order have no host type; both widen or
    # swap without changing a value.
    if values.dtype == numpy.float16:
        return values.astype(numpy.float32)
    if not values.dtype.isnative:
        return values.astype(values.dtype.newbyteorder('='))
    return values


def df_holds_strings(values):
    import pandas
    return pandas.api.types.infer_dtype(values, skipna=True) == 'string'
)PY";

}  // namespace pylnk_core::detail
