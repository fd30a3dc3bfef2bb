// Includes only the umbrella header, as programs that embed the library do; qualified.cpp includes
// it as <crosscutting/vfcrosscutting.h>.
#include <vfcrosscutting.h>

#include <QCoreApplication>
#include <QXmlStreamWriter>
#include <cstdio>

using namespace Crosscutting;

StatusCode qualifiedFileNotFound();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    StatusCode seen = 0;
    QObject::connect(VfCrosscuttingManagerPlaceholder::instance()->statusReporter(),
                     &VfAbstractStatusReporter::statusChangeOccurred,
                     [&](const VfStatusChangeEvent& e) { seen = e.statusCode(); });
    const StatusCode code = REPORT_STATUS(VfStatusCodes::FileNotFound, QStringLiteral("consumer"));
    VfCrosscuttingManagerPlaceholder::drop();
    // Qt5::Xml came along with the package.
    QString xml;
    QXmlStreamWriter writer(&xml);
    writer.writeEmptyElement("ok");
    writer.writeEndDocument();
    std::printf("consumer: code %llu, event %llu, %s\n", code, seen, qPrintable(xml));
    return (code == 34 && seen == 34 && qualifiedFileNotFound() == 34) ? 0 : 1;
}
