#ifndef VFSTATUSCODES_H
#define VFSTATUSCODES_H

/// \file
/// StatusCode and the status code enumeration.

#include "vfcrosscutting_export.h"

#include <QObject>

/// The result of every fallible operation of the library and of the programs that use it.
/// 0 (VfStatusCodes::Success) is success; any other value is a Crosscutting::VfStatusCodes::VfStatusCode.
/// It lives at global scope so that every caller can return it without a namespace.
typedef unsigned long long StatusCode;

namespace Crosscutting {

/// Holds the status code enumeration and publishes it to Qt's meta-object system, so that
/// the catalogue can name codes by text and the code finds them by number.
///
/// Never instantiated: only its static meta-object is used.
class VFCROSSCUTTING_EXPORT VfStatusCodes : public QObject
{
    Q_OBJECT
public:
    /// Every status the framework knows, with consecutive values from 0. The catalogue
    /// (":/configuration/statuscodes_framework.json") gives each one its title, description,
    /// severity and category; Success and LastValue have no record there.
    enum VfStatusCode : unsigned long long {
        Success = 0,
        ApplicationAlreadyLoaded = 1,
        ApplicationLoadFailed = 2,
        ApplicationNotFound = 3,
        ApplicationUnloadFailed = 4,
        CommandFailed = 5,
        CommandFormatInvalid = 6,
        CommandNotRecognized = 7,
        ConfigurationDataInvalid = 8,
        ConnectivityAuthenticationFailure = 9,
        ConnectivityUiConnectionAlreadyEstablished = 10,
        CppStandardLibraryBadException = 11,
        CppStandardLibraryInvalidDynamicCast = 12,
        CppStandardLibraryInvalidTypeId = 13,
        CppStandardLibraryIoStreamError = 14,
        CppStandardLibraryMemoryAllocationFailure = 15,
        DataCollectorCannotStart = 16,
        DataCollectorCannotStop = 17,
        DataSizeInvalid = 18,
        DataInvalid = 19,
        DeviceNotFound = 20,
        DirectoryCannotCreate = 21,
        DirectoryCannotDelete = 22,
        DirectoryNotFound = 23,
        DriverNotFound = 24,
        DownloadFailed = 25,
        ErrorRateTooHigh = 26,
        ExternalProcessFailed = 27,
        FeatureNotAvailable = 28,
        FileCannotCopy = 29,
        FileCannotOpen = 30,
        FileCannotRemove = 31,
        FileCannotRename = 32,
        FileIoError = 33,
        FileNotFound = 34,
        FileSystemMountFailed = 35,
        FileVersionInvalid = 36,
        FileXmlTagInvalid = 37,
        HardwareError = 38,
        InputInvalid = 39,
        InputNull = 40,
        InstrumentModelMismatch = 41,
        InstrumentOptionMismatch = 42,
        IoctlFailed = 43,
        IoReadFailed = 44,
        IoWriteFailed = 45,
        ItemAlreadyExists = 46,
        ItemDoesNotExist = 47,
        MeasurementResultPending = 48,
        MemoryAccessViolation = 49,
        MetaObjectInstantiationError = 50,
        ObjectConstructionFailed = 51,
        ObjectNull = 52,
        ObjectStateInvalid = 53,
        PendingOperationResetFailure = 54,
        ProxyConnectionEstablishmentError = 55,
        ProxyEncodeError = 56,
        ProxyInitializationError = 57,
        ProxySendError = 58,
        QueueFull = 59,
        ReportStatusInvalidArgCount = 60,
        ReportStatusStatusCodeNotRecognized = 61,
        ScpiCommandNotRecognized = 62,
        ScpiCommandSyntaxError = 63,
        SettingChangePending = 64,
        SettingDependencyEvaluationError = 65,
        SettingValidationError = 66,
        SharedMemoryAttachFailure = 67,
        SignalSlotConnectionFailure = 68,
        StringParseError = 69,
        TimeoutExceeded = 70,
        Unknown = 71,
        UnknownEnumValue = 72,
        LastValue = 73,
    };
    Q_ENUM(VfStatusCode)
};

} // namespace Crosscutting

#endif // VFSTATUSCODES_H
