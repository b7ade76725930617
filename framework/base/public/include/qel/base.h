// Umbrella header: every exported class of qel Base.
#pragma once

#include <qel/bufferoverflow.h>
#include <qel/criticalsection.h>
#include <qel/debuggerstream.h>
#include <qel/errormanager.h>
#include <qel/exception.h>
#include <qel/export.h>
#include <qel/host.h>
#include <qel/inputbufferstream.h>
#include <qel/inputmemorystream.h>
#include <qel/inputstream.h>
#include <qel/instancemanager.h>
#include <qel/interface.h>
#include <qel/memchunktree.h>
#include <qel/outputbufferstream.h>
#include <qel/outputstream.h>
#include <qel/provider.h>
#include <qel/querydevice.h>
#include <qel/report.h>
#include <qel/stream.h>
#include <qel/systembase.h>
#include <qel/textoutputdevice.h>
#include <qel/types.h>
#include <qel/version.h>
