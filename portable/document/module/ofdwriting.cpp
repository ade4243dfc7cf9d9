// SPDX-License-Identifier: MIT
// The structure follows GB/T 33190-2016, chapter 7; in each file the order of elements matters.
#include "portable/document/documentmodule.h"

#include <QDate>
#include <QFile>
#include <QUuid>
#include <QXmlStreamWriter>
#include <zip.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

namespace portable {

namespace {

// The objects of a document are numbered from 1, each number used once. A page has four.
enum IdOfPage { PageId, LayerId, ObjectId, ImageId, IdsPerPage };

QString id(std::size_t page, IdOfPage which)
{
    return QString::number(1 + page * IdsPerPage + which);
}

QString millimeters(int pixels, int dpi)
{
    return QString::number(pixels * 25.4 / dpi, 'f', 3);
}

/// "0 0 width height"
QString boxOf(const Page &page)
{
    return QStringLiteral("0 0 ") + millimeters(page.size.width, page.dpi.x) + QLatin1Char(' ')
        + millimeters(page.size.height, page.dpi.y);
}

/// Scales the unit square, which an image fills, to the page.
QString matrixOf(const Page &page)
{
    return millimeters(page.size.width, page.dpi.x) + QStringLiteral(" 0 0 ")
        + millimeters(page.size.height, page.dpi.y) + QStringLiteral(" 0 0");
}

QString imageName(std::size_t page, const Page &of)
{
    return QStringLiteral("Image_%1.%2")
        .arg(page)
        .arg(of.encoding == Encoding::Jpeg ? QStringLiteral("jpg") : QStringLiteral("png"));
}

QString pageFile(std::size_t page)
{
    return QStringLiteral("Pages/Page_%1/Content.xml").arg(page);
}

/// Writes one XML file with all elements in OFD's namespace.
class OfdXml
{
public:
    using Attributes = std::vector<std::pair<const char *, QString>>;
    using Children = std::function<void()>;

    void element(const char *name, const Attributes &attributes, const Children &children)
    {
        start(name, attributes);
        children();
        m_writer.writeEndElement();
    }

    void element(const char *name, const Attributes &attributes)
    {
        element(name, attributes, [] {});
    }

    void text(const char *name, const QString &text)
    {
        m_writer.writeTextElement(space(), QLatin1String(name), text);
    }

    /// The bytes of a file with this root element.
    static QByteArray file(const char *root, const Attributes &attributes,
                           const std::function<void(OfdXml &)> &children)
    {
        OfdXml xml;
        xml.m_writer.writeStartDocument();
        xml.m_writer.writeNamespace(space(), QStringLiteral("ofd"));
        xml.element(root, attributes, [&] { children(xml); });
        xml.m_writer.writeEndDocument();
        return xml.m_bytes;
    }

private:
    static QString space() { return QStringLiteral("http://www.ofdspec.org/2016"); }

    void start(const char *name, const Attributes &attributes)
    {
        m_writer.writeStartElement(space(), QLatin1String(name));
        for (const auto &attribute : attributes) {
            m_writer.writeAttribute(QLatin1String(attribute.first), attribute.second);
        }
    }

    QByteArray m_bytes;
    QXmlStreamWriter m_writer{&m_bytes};
};

using Pages = std::vector<PageSpool::Entry>;

QByteArray ofdXml()
{
    const auto body = [](OfdXml &xml) {
        xml.element("DocBody", {}, [&] {
            xml.element("DocInfo", {}, [&] {
                xml.text(
                    "DocID",
                    QUuid::createUuid().toString(QUuid::WithoutBraces).remove(QLatin1Char('-')));
                xml.text("CreationDate", QDate::currentDate().toString(Qt::ISODate));
                xml.text("Creator", QStringLiteral("portable device library"));
            });
            xml.text("DocRoot", QStringLiteral("Doc_0/Document.xml"));
        });
    };
    return OfdXml::file(
        "OFD", {{"Version", QStringLiteral("1.0")}, {"DocType", QStringLiteral("OFD")}}, body);
}

QByteArray documentXml(const Pages &pages)
{
    return OfdXml::file("Document", {}, [&](OfdXml &xml) {
        xml.element("CommonData", {}, [&] {
            xml.text("MaxUnitID", QString::number(pages.size() * IdsPerPage));
            xml.element("PageArea", {},
                        [&] { xml.text("PhysicalBox", boxOf(pages.front().page)); });
            xml.text("DocumentRes", QStringLiteral("DocumentRes.xml"));
        });
        xml.element("Pages", {}, [&] {
            for (std::size_t i = 0; i < pages.size(); ++i) {
                xml.element("Page", {{"ID", id(i, PageId)}, {"BaseLoc", pageFile(i)}});
            }
        });
    });
}

QByteArray resourcesXml(const Pages &pages)
{
    return OfdXml::file("Res", {{"BaseLoc", QStringLiteral("Res")}}, [&](OfdXml &xml) {
        xml.element("MultiMedias", {}, [&] {
            for (std::size_t i = 0; i < pages.size(); ++i) {
                const Page &page = pages[i].page;
                const bool isJpeg = page.encoding == Encoding::Jpeg;
                xml.element("MultiMedia",
                            {{"ID", id(i, ImageId)},
                             {"Type", QStringLiteral("Image")},
                             {"Format", isJpeg ? QStringLiteral("JPEG") : QStringLiteral("PNG")}},
                            [&] { xml.text("MediaFile", imageName(i, page)); });
            }
        });
    });
}

QByteArray pageXml(std::size_t index, const Page &page)
{
    const QString box = boxOf(page);
    return OfdXml::file("Page", {}, [&](OfdXml &xml) {
        xml.element("Area", {}, [&] { xml.text("PhysicalBox", box); });
        xml.element("Content", {}, [&] {
            xml.element("Layer", {{"ID", id(index, LayerId)}, {"Type", QStringLiteral("Body")}},
                        [&] {
                            xml.element("ImageObject",
                                        {{"ID", id(index, ObjectId)},
                                         {"Boundary", box},
                                         {"CTM", matrixOf(page)},
                                         {"ResourceID", id(index, ImageId)}});
                        });
        });
    });
}

/// A ZIP file being written; complete on disk when close() returns true.
class Zip
{
public:
    explicit Zip(const QString &path)
    {
        int code = 0;
        m_zip.reset(
            zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &code));
        if (!m_zip) {
            zip_error_t error;
            zip_error_init_with_code(&error, code);
            m_reason = QString::fromLocal8Bit(zip_error_strerror(&error));
            zip_error_fini(&error);
        }
    }

    /// Adds a file, compressed.
    bool add(const QString &name, const QByteArray &bytes)
    {
        char *copy = static_cast<char *>(std::malloc(std::size_t(bytes.size())));
        if (!m_zip || !copy) {
            std::free(copy);
            return false;
        }
        std::memcpy(copy, bytes.constData(), std::size_t(bytes.size()));
        zip_source_t *source =
            zip_source_buffer(m_zip.get(), copy, zip_uint64_t(bytes.size()), 1); // which frees it
        if (!source) {
            std::free(copy);
        }
        return add(name, source, ZIP_CM_DEFLATE);
    }

    /// Stored, as pictures are compressed already; close() reads the bytes.
    bool add(const QString &name, const QByteArray &path, const PageSpool::Entry &page)
    {
        return m_zip
            && add(name,
                   zip_source_file(m_zip.get(), path.constData(), zip_uint64_t(page.offset),
                                   page.length),
                   ZIP_CM_STORE);
    }

    bool close()
    {
        if (!m_zip || zip_close(m_zip.get()) != 0) {
            return false;
        }
        static_cast<void>(m_zip.release());
        return true;
    }

    QString reason() const
    {
        return m_zip ? QString::fromLocal8Bit(zip_strerror(m_zip.get())) : m_reason;
    }

private:
    struct Discard
    {
        void operator()(zip_t *zip) const { zip_discard(zip); }
    };

    bool add(const QString &name, zip_source_t *source, zip_int32_t method)
    {
        if (!source) {
            return false;
        }
        const zip_int64_t index =
            zip_file_add(m_zip.get(), name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            return false;
        }
        return zip_set_file_compression(m_zip.get(), zip_uint64_t(index), method, 0) == 0;
    }

    std::unique_ptr<zip_t, Discard> m_zip;
    QString m_reason; // why it couldn't be created
};

} // namespace

bool writeOfdByZip(const QString &path, const PageSpool &spool, QString *error)
{
    const Pages &pages = spool.pages();
    const QByteArray images = spool.path();
    const QString folder = QStringLiteral("Doc_0/");
    Zip zip(path);
    bool ok = zip.add(QStringLiteral("OFD.xml"), ofdXml())
        && zip.add(folder + QStringLiteral("Document.xml"), documentXml(pages))
        && zip.add(folder + QStringLiteral("DocumentRes.xml"), resourcesXml(pages));
    for (std::size_t i = 0; ok && i < pages.size(); ++i) {
        const Page &page = pages[i].page;
        ok = zip.add(folder + pageFile(i), pageXml(i, page))
            && zip.add(folder + QStringLiteral("Res/") + imageName(i, page), images, pages[i]);
    }
    if (!ok || !zip.close()) {
        *error = zip.reason();
        return false;
    }
    return true;
}

} // namespace portable
