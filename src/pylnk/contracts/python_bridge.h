// The Python bridge as the commands use it, with short names for its
// namespaces.
#pragma once

#include <pylnk_core/pylnk_core.h>

namespace pylnk {

namespace object = pylnk_core::api::object;
namespace primitive = pylnk_core::api::primitive;
namespace sequence = pylnk_core::api::sequence;
namespace mapping = pylnk_core::api::mapping;
namespace module = pylnk_core::api::module;
namespace type = pylnk_core::api::type;
namespace exception = pylnk_core::api::exception;
namespace managed = pylnk_core::api::managed;
namespace dataframe = pylnk_core::api::dataframe;
using H = boost::shared_ptr<python::pyArray>;

}  // namespace pylnk
