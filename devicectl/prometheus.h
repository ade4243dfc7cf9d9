// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonObject>

/**
 * The figures of a status as Prometheus reads them (text exposition format 0.0.4), for a text file
 * of node_exporter. An empty report is a server that doesn't run: rvowebsocketserver_up is 0.
 */
QByteArray prometheusText(const QJsonObject &status);
