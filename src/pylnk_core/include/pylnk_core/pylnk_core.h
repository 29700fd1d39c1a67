// The Python bridge: everything the library does in Python goes through here.
#pragma once

#include "pylnk_core/collections.h"
#include "pylnk_core/dataframe.h"
#include "pylnk_core/date_components.h"
#include "pylnk_core/errors.h"
#include "pylnk_core/fetch.h"
#include "pylnk_core/loader.h"
#include "pylnk_core/module.h"
#include "pylnk_core/object.h"
#include "pylnk_core/primitive.h"
#include "pylnk_core/session.h"
#include "pylnk_core/type.h"
#include "pylnk_core/types.h"
