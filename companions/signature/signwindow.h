// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"
#include "companions/signature/signingrequest.h"

#include <QTimer>
#include <QWidget>

QT_FORWARD_DECLARE_CLASS(QLabel)
QT_FORWARD_DECLARE_CLASS(QPushButton)
class PageView;
class SignaturePad;

/**
 * The window for the customer: the page with the place of the signature, the pad, the time left and
 * the buttons. Fills the customer's screen and never takes the keyboard focus from the teller.
 *
 * Emits one of confirmed, cancelled and timedOut, once.
 */
class SignWindow : public QWidget
{
    Q_OBJECT

public:
    /**
     * \param pageCount  of the document
     * \param pageSize   of the page to sign, in points
     */
    SignWindow(const SigningRequest &request, int pageCount, const QSizeF &pageSize);

    /// Shows the window on the customer's screen and starts the time.
    void open();

    /// The page to show, counted from 1.
    int page() const { return m_page; }
    void showPage(int page, const QImage &image);

    SignaturePad *pad() const { return m_pad; }
    /// Presses the button; nothing happens while it is disabled.
    void confirm();
    void cancel();

Q_SIGNALS:
    /// The image of page() is needed: answer with showPage().
    void pageNeeded(int page);
    void confirmed();
    void cancelled();
    void timedOut();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QWidget *makeHeader();
    QWidget *makePages();
    QWidget *makeSigning();
    QPushButton *makeButton(const QString &chinese, const QString &english, const char *role);
    void arrange(const QSize &screen);
    void turnTo(int page);
    void inkChanged();
    Q_INVOKABLE void tick(); // each second; tests call it, too
    void end(void (SignWindow::*outcome)());
    void updatePageButtons();

    const SigningRequest m_request;
    const int m_pageCount;
    const QRectF m_place; ///< 0..1 of the page, from its upper left corner
    int m_page;
    bool m_ended = false;
    int m_secondsLeft;
    QTimer m_seconds;

    QLabel *m_time = nullptr;
    PageView *m_view = nullptr;
    QLabel *m_pageNumber = nullptr;
    QPushButton *m_back = nullptr;
    QPushButton *m_next = nullptr;
    QPushButton *m_toPlace = nullptr;
    QPushButton *m_enlarge = nullptr;
    SignaturePad *m_pad = nullptr;
    QPushButton *m_clear = nullptr;
    QPushButton *m_confirm = nullptr;
    QPushButton *m_cancel = nullptr;
};
