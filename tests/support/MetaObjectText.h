#pragma once

#include <QMetaMethod>
#include <QMetaObject>
#include <QMetaProperty>
#include <QString>
#include <QStringList>

/** What a class adds to its base class's meta-object, as text that can be compared and read. */
namespace MetaObjectText {

/** "public slot: void Release()", "private slot: void on_x(int n)", ... in the order of the meta-object. */
inline QStringList methods(const QMetaObject& metaObject)
{
    static const char* const kinds[] = {"method", "signal", "slot", "constructor"};
    static const char* const accesses[] = {"private", "protected", "public"};
    QStringList texts;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const QMetaMethod method = metaObject.method(i);
        QStringList parameters;
        for (int p = 0; p < method.parameterCount(); ++p) {
            parameters << QString(method.parameterTypes().at(p)) + ' ' + method.parameterNames().at(p);
        }
        const QString tag = *method.tag() ? QString(method.tag()) + ' ' : QString();
        texts << QString("%1 %2: %3%4 %5(%6)")
                     .arg(accesses[method.access()], kinds[method.methodType()], tag, method.typeName(),
                          QString(method.name()), parameters.join(", "));
    }
    return texts;
}

/** "QString Type" for a property that can only be read; what else can be done with it follows the name. */
inline QStringList properties(const QMetaObject& metaObject)
{
    QStringList texts;
    for (int i = metaObject.propertyOffset(); i < metaObject.propertyCount(); ++i) {
        const QMetaProperty property = metaObject.property(i);
        const bool isOrdinary = property.isReadable() && property.isDesignable() && property.isScriptable() &&
                                property.isStored() && !property.isConstant() && !property.isFinal() &&
                                !property.isUser() && !property.isResettable();
        texts << QString(property.typeName()) + ' ' + property.name() + (isOrdinary ? "" : " special") +
                     (property.isWritable() ? " writable" : "") +
                     (property.hasNotifySignal() ? " notifying" : "");
    }
    return texts;
}

/** The name of a type that is an alias: Qt 5 shows the alias, Qt 6 what it stands for. */
template <typename Type>
QString aliasName([[maybe_unused]] const char* alias)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QMetaType::fromType<Type>().name();
#else
    return alias;
#endif
}

/** "key: value" for each class information. */
inline QStringList classInfos(const QMetaObject& metaObject)
{
    QStringList texts;
    for (int i = metaObject.classInfoOffset(); i < metaObject.classInfoCount(); ++i) {
        texts << QString(metaObject.classInfo(i).name()) + ": " + metaObject.classInfo(i).value();
    }
    return texts;
}

} // namespace MetaObjectText
