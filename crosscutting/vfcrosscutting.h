#ifndef VFCROSSCUTTING_H
#define VFCROSSCUTTING_H

/// \file
/// The one header that programs include: every public header of libVfCrosscutting, usable as
/// `#include <vfcrosscutting.h>` or `#include <crosscutting/vfcrosscutting.h>`.

#include "vfcrosscutting_export.h"
#include "systemidentity.h"
#include "vfabstractlogmanager.h"
#include "vfabstractlogwriter.h"
#include "vfabstractmutex.h"
#include "vfabstractstatusreporter.h"
#include "vfcrosscuttingmanagerplaceholder.h"
#include "vfdisplayable.h"
#include "vferrorratehandler.h"
#include "vffilewriter.h"
#include "vflog.h"
#include "vflogentry.h"
#include "vflogmanager.h"
#include "vfmutex.h"
#include "vfmutexlocker.h"
#include "vfmutextools.h"
#include "vfmutextoolscontroller.h"
#include "vfmutextracker.h"
#include "vfplatforminfo.h"
#include "vfrecursivemutex.h"
#include "vfsourcecontext.h"
#include "vfstaticstatusinfo.h"
#include "vfstatuschangeevent.h"
#include "vfstatuscodes.h"
#include "vfstatusreporter.h"
#include "vfstatusseverityerrorratehandler.h"
#include "vfstatusseverityfilewriter.h"
#include "vfstdoutwriter.h"
#include "vfstorageinfo.h"
#include "vftimer.h"
#include "vfunixsignalhandler.h"
#include "vfutilities.h"

/// \namespace Crosscutting
/// The cross-cutting services of the instrument software: status reporting, logging, mutexes,
/// platform paths and storage volumes, signal and crash handling, utilities and identity.
/// Start with VfCrosscuttingManagerPlaceholder and REPORT_STATUS.

#endif // VFCROSSCUTTING_H
