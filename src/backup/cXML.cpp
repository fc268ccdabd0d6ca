#include "cXML.h"

#include "link/Clock.h"
#include "link/UpdaterError.h"

#include <QFile>
#include <QHash>
#include <QLocale>
#include <QSaveFile>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString kRoot = u"VARIMOsentry"_s;

bool isLatin1(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() <= 0xFF; });
}

bool isXmlWhitespace(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; });
}

// A text for error messages: bytes that would break a log line are shown as \xNN.
QString shown(const QString &text)
{
    return u'"' +
        escapedText(text, [](char16_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }) + u'"';
}

// XML 1.0 has no way to carry the control characters other than TAB, LF and CR, not even as a
// character reference; a file holding one does not load again.
void checkValue(const QByteArray &value, const QString &what)
{
    for (const char ch : value) {
        const auto byte = static_cast<unsigned char>(ch);
        if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') {
            throw UpdaterError(
                u"the value %1 of %2 holds the byte 0x%3, which an XML file cannot carry"_s.arg(
                    shown(QString::fromLatin1(value)), what, hexByte(byte)));
        }
    }
}

QByteArray toBytes(const QString &text, const QString &where)
{
    if (!isLatin1(text)) {
        throw UpdaterError(
            u"%1: the text %2 holds characters that are not bytes"_s.arg(where, shown(text)));
    }
    return text.toLatin1();
}

// The text directly inside an element (not that of its child elements).
QString ownText(const QDomElement &element)
{
    QString text;
    for (QDomNode n = element.firstChild(); !n.isNull(); n = n.nextSibling()) {
        if (n.isText())
            text += n.toText().data();
    }
    return text;
}

// The first element in document order at an absolute path of element names below parent.
QDomElement findPath(const QDomNode &parent, const QStringList &steps, qsizetype step)
{
    for (QDomElement e = parent.firstChildElement(steps[step]); !e.isNull();
         e = e.nextSiblingElement(steps[step])) {
        if (step + 1 == steps.size())
            return e;
        if (const QDomElement found = findPath(e, steps, step + 1); !found.isNull())
            return found;
    }
    return {};
}

QDomElement findElement(const QDomDocument &doc, const QString &path)
{
    const QStringList steps = path.split(u'/');
    if (steps.size() < 2 || !steps.front().isEmpty() || steps.mid(1).contains(QString()))
        throw UpdaterError(u"%1 is no absolute path of element names"_s.arg(path));
    return findPath(doc, steps, 1);
}

QString createdText(const QDateTime &now)
{
    const QString text = QLocale::system().toString(now.date(), QLocale::ShortFormat) + u' ' +
        now.time().toString(u"HH:mm:ss"_s);
    // Every text of the document is Latin-1; a locale that writes its dates otherwise gets the
    // numeric form.
    return isLatin1(text) ? text : now.toString(u"yyyy-MM-dd HH:mm:ss"_s);
}

void writeText(QXmlStreamWriter &writer, const QString &text)
{
    // A CR written as it is comes back as LF (XML ends its lines so); a character reference
    // keeps it. TAB and LF inside an element's text come back as they are.
    const QStringList lines = text.split(u'\r');
    writer.writeCharacters(lines.front());
    for (qsizetype i = 1; i < lines.size(); ++i) {
        writer.writeEntityReference(u"#xd"_s);
        writer.writeCharacters(lines[i]);
    }
}

// Ends the element parent and returns its parent.
QDomNode readEndElement(QDomNode parent)
{
    // Whitespace between child elements is layout, not a value.
    const QDomElement element = parent.toElement();
    if (!element.firstChildElement().isNull()) {
        for (QDomNode n = element.firstChild(); !n.isNull();) {
            const QDomNode next = n.nextSibling();
            if (n.isText() && isXmlWhitespace(n.toText().data()))
                parent.removeChild(n);
            n = next;
        }
    }
    return parent.parentNode();
}

} // namespace

QString hexByte(uint byte)
{
    return u"%1"_s.arg(byte, 2, 16, QLatin1Char('0'));
}

QString escapedText(QStringView text, bool (*escape)(char16_t))
{
    QString out;
    for (const QChar c : text)
        out += escape(c.unicode()) ? u"\\x"_s + hexByte(c.unicode()) : QString(c);
    return out;
}

void cXML::reset()
{
    m_doc = QDomDocument();
    m_current = QDomElement();
    m_attributeOrder.clear();
    m_error.clear();
}

QString cXML::where() const
{
    return m_source.isEmpty() ? u"backup document"_s : u"backup file "_s + m_source;
}

void cXML::CreateXMLDocument(const QString &fileName)
{
    reset();
    m_fileName = fileName;
    m_source = fileName;
    QDomElement root = m_doc.createElement(kRoot);
    m_doc.appendChild(root);
    m_current = root;
    SetAttribute(u"DocumentVersion"_s, QByteArrayLiteral("1.0"));
    const QDateTime now = m_clock ? m_clock->now() : QDateTime::currentDateTime();
    setAttributeInOrder(root, u"Created"_s, createdText(now));
    SaveXMLDoc();
}

void cXML::writeElement(QXmlStreamWriter &writer, const QDomElement &element) const
{
    writer.writeStartElement(element.tagName());
    // QXmlStreamWriter writes TAB, LF and CR in attribute values as character references, so
    // the parser's normalisation of attribute values leaves them as they are.
    for (const QString &name : attributeNames(element))
        writer.writeAttribute(name, element.attribute(name));
    for (QDomNode n = element.firstChild(); !n.isNull(); n = n.nextSibling()) {
        if (n.isElement())
            writeElement(writer, n.toElement());
        else if (n.isText())
            writeText(writer, n.toText().data());
    }
    writer.writeEndElement();
}

void cXML::SaveXMLDoc()
{
    if (m_fileName.isEmpty())
        throw UpdaterError(u"the backup document has no file name to be saved to"_s);
    const QDomElement root = m_doc.documentElement();
    if (root.isNull())
        throw UpdaterError(u"cannot save backup file %1: the document is empty"_s.arg(m_fileName));

    QByteArray content;
    QXmlStreamWriter writer(&content);
    writeElement(writer, root);
    if (writer.hasError()) {
        throw UpdaterError(u"cannot save backup file %1: the document holds characters that XML "
                           "cannot carry"_s.arg(m_fileName));
    }

    // QSaveFile writes a temporary file beside the target, flushes it to disk and renames it over
    // the target; when anything fails on the way, the temporary file is dropped with the object.
    // Unbuffered, because QSaveFile::commit does not check its last flush (a full disk would put
    // a torn file in place of the old one); here every write is checked, and a short write is
    // repeated until the system names the error.
    QSaveFile file(m_fileName);
    const auto failed = [&] {
        return UpdaterError(
            u"cannot save backup file %1: %2"_s.arg(m_fileName, file.errorString()));
    };
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw failed();
    for (qint64 done = 0; done < content.size();) {
        const qint64 written = file.write(content.constData() + done, content.size() - done);
        if (written <= 0)
            throw failed();
        done += written;
    }
    if (!file.commit())
        throw failed();
}

QDomElement cXML::requireCurrent(const char *operation) const
{
    if (m_current.isNull()) {
        throw UpdaterError(u"%1: no current element in the %2 (none created or opened)"_s.arg(
            QString::fromLatin1(operation), where()));
    }
    return m_current;
}

QStringList cXML::attributeNames(const QDomElement &element) const
{
    for (auto it = m_attributeOrder.crbegin(); it != m_attributeOrder.crend(); ++it) {
        if (it->element == element)
            return it->names;
    }
    return {};
}

void cXML::setAttributeInOrder(QDomElement &element, const QString &name, const QString &value)
{
    element.setAttribute(name, value);
    for (auto it = m_attributeOrder.rbegin(); it != m_attributeOrder.rend(); ++it) {
        if (it->element == element) {
            if (!it->names.contains(name))
                it->names.append(name);
            return;
        }
    }
    m_attributeOrder.append({element, {name}});
}

void cXML::SetAttribute(const QString &name, const QByteArray &value)
{
    QDomElement current = requireCurrent("SetAttribute");
    checkValue(value, u"attribute %1 of <%2>"_s.arg(name, current.tagName()));
    setAttributeInOrder(current, name, QString::fromLatin1(value));
}

QDomElement cXML::createElement(const QString &name, const QByteArray &text)
{
    checkValue(text, u"<%1>"_s.arg(name));
    QDomElement element = m_doc.createElement(name);
    // No text node for an empty text: the element then reads back exactly as it was written.
    if (!text.isEmpty())
        element.appendChild(m_doc.createTextNode(QString::fromLatin1(text)));
    return element;
}

void cXML::CreateAndSetChild(const QString &name, const QByteArray &text)
{
    QDomElement current = requireCurrent("CreateAndSetChild");
    QDomElement child = createElement(name, text);
    current.appendChild(child);
    m_current = child;
}

void cXML::CreateAndSetSibling(const QString &name, const QByteArray &text)
{
    QDomElement current = requireCurrent("CreateAndSetSibling");
    QDomElement sibling = createElement(name, text);
    SetParent();
    m_current.appendChild(sibling);
    m_current = sibling;
}

void cXML::SetParent()
{
    const QDomElement current = requireCurrent("SetParent");
    const QDomElement parent = current.parentNode().toElement();
    if (parent.isNull()) {
        throw UpdaterError(
            u"SetParent: <%1> has no parent element in the %2"_s.arg(current.tagName(), where()));
    }
    m_current = parent;
}

QDomNode cXML::readStartElement(const QXmlStreamReader &reader, QDomNode parent)
{
    QDomElement element = m_doc.createElement(reader.qualifiedName().toString());
    QStringList names;
    const QXmlStreamAttributes attributes = reader.attributes();
    for (const QXmlStreamAttribute &attribute : attributes) {
        names.append(attribute.qualifiedName().toString());
        element.setAttribute(names.back(), attribute.value().toString());
    }
    if (!names.isEmpty())
        m_attributeOrder.append({element, names});
    // The root element goes into the document itself.
    (parent.isNull() ? QDomNode(m_doc) : parent).appendChild(element);
    return element;
}

bool cXML::OpenXMLDocument(const QString &fileName)
{
    reset();
    m_source = fileName;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = file.errorString();
        return false;
    }

    QXmlStreamReader reader(&file);
    // Names and xmlns attributes are taken as they are written.
    reader.setNamespaceProcessing(false);
    // Null until the root element starts (the document itself is made with its first element).
    QDomNode parent;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            parent = readStartElement(reader, parent);
            break;
        case QXmlStreamReader::EndElement:
            parent = readEndElement(parent);
            break;
        case QXmlStreamReader::Characters:
            // Text outside the root element can only be whitespace.
            if (parent.isElement()) {
                QDomNode last = parent.lastChild();
                if (last.isText())
                    last.toText().appendData(reader.text().toString());
                else
                    parent.appendChild(m_doc.createTextNode(reader.text().toString()));
            }
            break;
        case QXmlStreamReader::EntityReference:
            reader.raiseError(u"the entity &%1; cannot be resolved"_s.arg(reader.name()));
            break;
        default:
            // The XML declaration, comments, processing instructions and a document type carry
            // nothing of a backup.
            break;
        }
    }
    if (reader.hasError()) {
        const QString why = u"line %1, column %2: %3"_s.arg(reader.lineNumber())
                                .arg(reader.columnNumber())
                                .arg(reader.errorString());
        reset();
        m_error = why;
        return false;
    }
    return CheckXML();
}

bool cXML::CheckXML()
{
    m_error.clear();
    m_current = m_doc.documentElement();
    if (m_current.isNull())
        m_error = u"the document has no root element"_s;
    else if (m_current.tagName() != kRoot)
        m_error = u"the root element is <%1>, not <%2>"_s.arg(m_current.tagName(), kRoot);
    else if (m_current.firstChildElement().isNull())
        m_error = u"the root element <%1> is empty"_s.arg(kRoot);
    return m_error.isEmpty();
}

QDomElement cXML::elementAt(const QString &path) const
{
    const QDomElement element = findElement(m_doc, path);
    if (element.isNull())
        throw UpdaterError(u"%1: no element %2"_s.arg(where(), path));
    return element;
}

QByteArray cXML::GetValueOfElement(const QString &path)
{
    m_current = elementAt(path);
    return toBytes(m_current.text(), u"%1: %2"_s.arg(where(), path));
}

QByteArray cXML::GetAttrOfElement(const QString &path, const QString &attribute)
{
    m_current = elementAt(path);
    if (!m_current.hasAttribute(attribute)) {
        throw UpdaterError(u"%1: element %2 has no attribute %3"_s.arg(where(), path, attribute));
    }
    return toBytes(m_current.attribute(attribute), u"%1: %2/@%3"_s.arg(where(), path, attribute));
}

QByteArray cXML::RootAttribute(const QString &attribute) const
{
    const QString value = m_doc.documentElement().attribute(attribute);
    return isLatin1(value) ? value.toLatin1() : QByteArray();
}

void cXML::GetTelegramsFromXML(const QString &boardElement, QList<QByteArray> &telegrams) const
{
    const QString board = u"/"_s + kRoot + u'/' + boardElement;
    QList<QByteArray> result;
    // Appends one telegram per child element of the group: its attribute values, each followed
    // by ";", then its text; or, with an index prefix, prefix + position + ";" + text.
    const auto addGroup = [&](const QString &path, const QByteArray &indexPrefix) {
        const QDomElement group = elementAt(path);
        int position = 0;
        for (QDomElement value = group.firstChildElement(); !value.isNull();
             value = value.nextSiblingElement(), ++position) {
            const QString here =
                u"%1: %2/*[%3]"_s.arg(where(), path, QString::number(position + 1));
            QByteArray telegram;
            if (indexPrefix.isEmpty()) {
                for (const QString &name : attributeNames(value))
                    telegram += toBytes(value.attribute(name), here) + ';';
            } else {
                telegram = indexPrefix + QByteArray::number(position) + ';';
            }
            result.append(telegram + toBytes(value.text(), here));
        }
    };

    if (boardElement == u"Mainboard") {
        addGroup(board, {});
    } else if (boardElement == u"Measureboard") {
        addGroup(board + u"/User"_s, {});
        addGroup(board + u"/Protected"_s, {});
    } else if (boardElement == u"CPUboard") {
        // By position in the group, not by the id attribute.
        addGroup(board + u"/User"_s, QByteArrayLiteral("DUV;"));
        addGroup(board + u"/Protected"_s, QByteArrayLiteral("DPV;"));
        result.append(QByteArrayLiteral("USR"));
    } else {
        return;
    }
    telegrams = result;
}

bool cXML::HasBoard(const QString &boardElement) const
{
    return !findElement(m_doc, u"/"_s + kRoot + u'/' + boardElement).isNull();
}

QList<std::pair<QString, QByteArray>> cXML::BoardIdentity(const QString &boardElement) const
{
    const QString path = u"/"_s + kRoot + u'/' + boardElement;
    const QDomElement board = findElement(m_doc, path);
    QList<std::pair<QString, QByteArray>> identity;
    for (const QString &name : attributeNames(board))
        identity.append({name, toBytes(board.attribute(name), path + u"/@"_s + name)});
    return identity;
}

QList<cXML::BoardValue> cXML::BoardValues(const QString &boardElement) const
{
    const QString path = u"/"_s + kRoot + u'/' + boardElement;
    QList<BoardValue> values;
    const auto add = [&](const QString &group, const QDomElement &value) {
        QStringList key;
        for (const QString &name : attributeNames(value))
            key.append(name + u'=' + value.attribute(name));
        const QString here = path + (group.isEmpty() ? QString() : u'/' + group);
        values.append({group, key.join(u' '), toBytes(value.text(), here)});
    };
    const QDomElement board = findElement(m_doc, path);
    for (QDomElement child = board.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (child.firstChildElement().isNull()) {
            add(QString(), child);
            continue;
        }
        // A group of values: "Protected" or "User".
        for (QDomElement value = child.firstChildElement(); !value.isNull();
             value = value.nextSiblingElement())
            add(child.tagName(), value);
    }
    return values;
}

QString cXML::FirstDifference(const cXML &other, const QString &boardElement) const
{
    const QString path = u"/"_s + kRoot + u'/' + boardElement;
    const QDomElement mine = findElement(m_doc, path);
    const QDomElement theirs = findElement(other.m_doc, path);
    if (mine.isNull() || theirs.isNull()) {
        if (mine.isNull() && theirs.isNull())
            return path + u": missing in both documents"_s;
        return path + (mine.isNull() ? u": missing here"_s : u": missing in the other document"_s);
    }
    return difference(mine, other, theirs, path);
}

QString cXML::difference(const QDomElement &mine, const cXML &other, const QDomElement &theirs,
                         const QString &path) const
{
    const auto differ = [&](const QString &where, const QString &what, const QString &a,
                            const QString &b) {
        return u"%1: %2%3 here, %4 in the other document"_s.arg(where, what, a, b);
    };
    if (mine.tagName() != theirs.tagName())
        return differ(path, u"element "_s, mine.tagName(), theirs.tagName());
    const QStringList names = attributeNames(mine);
    const QStringList theirNames = other.attributeNames(theirs);
    if (names != theirNames) {
        return differ(path, u"attributes "_s, u"(%1)"_s.arg(names.join(u", "_s)),
                      u"(%1)"_s.arg(theirNames.join(u", "_s)));
    }
    for (const QString &name : names) {
        if (mine.attribute(name) != theirs.attribute(name)) {
            return differ(path + u"/@"_s + name, {}, shown(mine.attribute(name)),
                          shown(theirs.attribute(name)));
        }
    }
    if (ownText(mine) != ownText(theirs))
        return differ(path, u"text "_s, shown(ownText(mine)), shown(ownText(theirs)));

    QHash<QString, int> seen;
    QDomElement a = mine.firstChildElement();
    QDomElement b = theirs.firstChildElement();
    for (; !a.isNull() && !b.isNull(); a = a.nextSiblingElement(), b = b.nextSiblingElement()) {
        const QString childPath =
            u"%1/%2[%3]"_s.arg(path, a.tagName(), QString::number(++seen[a.tagName()]));
        if (QString found = difference(a, other, b, childPath); !found.isEmpty())
            return found;
    }
    if (!a.isNull() || !b.isNull()) {
        const auto elements = [](QDomElement e) {
            int n = 0;
            for (e = e.firstChildElement(); !e.isNull(); e = e.nextSiblingElement())
                ++n;
            return n;
        };
        return differ(path, {}, u"%1 child elements"_s.arg(elements(mine)),
                      QString::number(elements(theirs)));
    }
    return {};
}
