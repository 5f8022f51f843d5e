#pragma once

#include <QCoreApplication>
#include <QTranslator>

// The shipped Chinese catalogue, installed for the lifetime of the object when asked for.
class ZhCatalogue
{
public:
    explicit ZhCatalogue(bool install)
    {
        if (install)
            m_installed = m_translator.load(QStringLiteral(":/zh_CN.qm")) &&
                          QCoreApplication::installTranslator(&m_translator);
    }
    ~ZhCatalogue() { QCoreApplication::removeTranslator(&m_translator); }
    bool isInstalled() const { return m_installed; }

private:
    QTranslator m_translator;
    bool m_installed = false;
};
