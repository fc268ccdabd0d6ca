#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QList>
#include <QString>
#include <QStringList>
#include <utility>

class Clock;
class QXmlStreamReader;
class QXmlStreamWriter;

// A byte as two lower-case hex digits ("0a").
QString hexByte(uint byte);
// The text with each character that escape picks written as \xNN, so that a message holding it
// stays on one line.
QString escapedText(QStringView text, bool (*escape)(char16_t));

// The parameter backup file: an XML document that holds, per board, the board's identity and the
// values the board answered to the parameter queries. The backup step builds it through a cursor
// (the current element: move down with CreateAndSetChild, sideways with CreateAndSetSibling, up
// with SetParent) and saves it; the restore step opens it again and takes each board's restore
// telegrams from it.
//
//   <VARIMOsentry DocumentVersion="1.0" Created="..." SerialNumber="00042">
//     <Mainboard Name=".." Firmware=".." Build="..">
//       <Value Telegram="CH">12.5</Value>...
//     </Mainboard>
//     <Measureboard ...>
//       <Protected><Value Telegram="CEF;0;0">..</Value>...</Protected>
//       <User>...</User>
//     </Measureboard>
//     <CPUboard ...>
//       <Protected><Value id="0">..</Value>...</Protected>
//       <User>...</User>
//     </CPUboard>
//   </VARIMOsentry>
//
// (shown indented here; the file holds no whitespace between elements)
//
// SerialNumber names the instrument the backup was made from, so that a restore into another
// instrument is refused; readers of the layout ignore it, and older backups lack it.
//
// Values are bytes 0-255: they enter the document as Latin-1 and come back byte for byte, whatever
// they hold ("&", "<", ";", 0xB0, CR, LF, TAB, blanks only, nothing at all). The bytes below 0x20
// other than TAB, LF and CR cannot be written to an XML file; a value holding one is refused with
// an UpdaterError, so the backup fails instead of leaving a file that cannot be read again.
//
// The file is written by our own walk over the document rather than by QDomDocument's save, and
// read with QXmlStreamReader rather than QDomDocument::setContent, for two reasons:
// - QDom keeps attributes in a hash, so it writes and lists them in an order that changes from one
//   run to the next. Here the attributes of an element keep the order in which they were set, or
//   in which they stand in the file, and the restore telegrams are built in that order.
// - QDom's loader drops text that is only blanks, which would turn a value of "  " into "".
//   Here only whitespace between child elements is dropped (there is none in a file we write).
// The file is UTF-8 without an XML declaration and without added whitespace. Comments,
// processing instructions and a document type in a file that is opened are not kept.
//
// Errors: a failed save, a refused value, a missing element or attribute on a path and a cursor
// move that has nowhere to go throw UpdaterError with the file or path. Only OpenXMLDocument and
// CheckXML report through their result (and errorString()), as a file that is no backup is an
// answer, not a fault.
//
// Lives on the engine thread; one object per backup or restore run.
class cXML
{
public:
    // The clock gives the creation time; the system clock when none is given.
    explicit cXML(Clock *clock = nullptr)
        : m_clock(clock)
    {
    }

    // Starts a new document for fileName: root "VARIMOsentry" with "DocumentVersion" and
    // "Created" (the local date-time as readable text), made current and saved at once.
    void CreateXMLDocument(const QString &fileName);
    // Writes the document to the file name given to CreateXMLDocument, atomically: the file holds
    // either its old content or the whole new document, never a part of it.
    void SaveXMLDoc();

    // Sets an attribute of the current element; a new name goes behind the existing ones, a name
    // set again keeps its place.
    void SetAttribute(const QString &name, const QByteArray &value);
    // Appends an element with that text (none when empty) as the last child of the current
    // element and makes it current.
    void CreateAndSetChild(const QString &name, const QByteArray &text);
    // Appends an element behind the current one, under the same parent, and makes it current.
    void CreateAndSetSibling(const QString &name, const QByteArray &text);
    // Makes the parent of the current element current.
    void SetParent();

    // Replaces the document by the content of fileName (the file name for saving stays as it
    // was) and returns CheckXML(). False when the file cannot be read or is not well-formed XML;
    // errorString() then says why ("line 3, column 7: Premature end of document.").
    bool OpenXMLDocument(const QString &fileName);
    // Makes the root element current; true when it is "VARIMOsentry" and has child elements.
    bool CheckXML();
    // Why the last OpenXMLDocument or CheckXML returned false.
    QString errorString() const { return m_error; }

    // The element at an absolute path of element names ("/VARIMOsentry/Mainboard"; the first
    // match in document order) becomes current; returns its text or the named attribute.
    QByteArray GetValueOfElement(const QString &path);
    QByteArray GetAttrOfElement(const QString &path, const QString &attribute);
    // An attribute of the root element; empty when the root or the attribute is missing.
    QByteArray RootAttribute(const QString &attribute) const;

    // Replaces telegrams by the restore telegrams of one board ("Mainboard", "Measureboard",
    // "CPUboard"); another name leaves telegrams as they are. Each value gives its attribute
    // values, each followed by ";", then its text: "CH;12.5". The Measuring Module gives its User
    // values before its Protected ones; the CPU Board gives "DUV;" + position + ";" + text for
    // each User value, then the same with "DPV;" for each Protected value, then "USR". A missing
    // board or group throws UpdaterError naming its path and leaves telegrams as they were.
    void GetTelegramsFromXML(const QString &boardElement, QList<QByteArray> &telegrams) const;

    // Compares one board element (for example "Mainboard") and everything below it with the same
    // board in other: element names, attributes in order, texts. Empty when they are the same,
    // else where and how they first differ, for example
    // /VARIMOsentry/Mainboard/Value[2]: text "12.5" here, "12.6" in the other document
    QString FirstDifference(const cXML &other, const QString &boardElement) const;

    // One parameter of a board as the document holds it: its group ("Protected", "User", or ""
    // for a value directly below the board), its key (the value's attributes as name=value,
    // "Telegram=CEF;0;0" or "id=3") and its bytes.
    struct BoardValue
    {
        QString group;
        QString key;
        QByteArray value;
    };
    // Whether the document holds the board element ("Mainboard", "Measureboard", "CPUboard").
    bool HasBoard(const QString &boardElement) const;
    // The attributes of the board element (its identity: Name, Firmware, Build), in order.
    QList<std::pair<QString, QByteArray>> BoardIdentity(const QString &boardElement) const;
    // Every value of the board, in document order; none when the board is missing.
    QList<BoardValue> BoardValues(const QString &boardElement) const;

private:
    QDomNode readStartElement(const QXmlStreamReader &reader, QDomNode parent);
    QDomElement createElement(const QString &name, const QByteArray &text);
    QDomElement elementAt(const QString &path) const;
    QDomElement requireCurrent(const char *operation) const;
    QStringList attributeNames(const QDomElement &element) const;
    void setAttributeInOrder(QDomElement &element, const QString &name, const QString &value);
    void writeElement(QXmlStreamWriter &writer, const QDomElement &element) const;
    QString difference(const QDomElement &mine, const cXML &other, const QDomElement &theirs,
                       const QString &path) const;
    QString where() const;
    void reset();

    struct AttributeOrder
    {
        QDomElement element;
        QStringList names;
    };

    Clock *m_clock = nullptr;
    QDomDocument m_doc;
    QDomElement m_current;
    QString m_fileName;
    // The file the document came from or goes to, for error texts.
    QString m_source;
    QString m_error;
    // The order of the attributes of every element that has any, as QDom does not keep it. A
    // backup has about 140 elements; a lookup searches from the newest.
    QList<AttributeOrder> m_attributeOrder;
};
