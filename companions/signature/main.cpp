// SPDX-License-Identifier: MIT
//
// The signature service.

#include "companions/common/companionprogram.h"
#include "companions/common/requestserver.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    prepareCompanion();
    QApplication application(argc, argv);
    RequestServer server(QStringLiteral("SOUTHINTERFACE_ELECSIGNSERVER"), {{1, 1}, {2, 1}});
    switch (server.start()) {
    case RequestServer::Start::Listening:
        return QApplication::exec();
    case RequestServer::Start::AnotherRuns:
        return 0;
    case RequestServer::Start::Failed:
        return 1;
    }
}
