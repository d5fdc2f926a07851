#pragma once

#include "korv/common/api.h"

/// Marks what the navigation-mesh module exports.
#define KORV_NAVMESH_API KORV_COMMON_API
