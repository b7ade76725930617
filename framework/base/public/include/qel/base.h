// Umbrella header: every exported class of qel Base.
#pragma once

#include <qel/export.h>
#include <qel/interface.h>
#include <qel/systembase.h>
#include <qel/types.h>
#include <qel/version.h>
