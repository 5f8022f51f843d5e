#include "keymapper.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

// How many spare codes are used in turn. A character is pressed and released before the next
// one is bound, so a few are plenty; more only lengthen the keymap every client compiles.
constexpr int spareKeyCount = 8;
// Codes above 255 exist for Wayland clients, but X11 programs cannot take them.
constexpr xkb_keycode_t maxSpareKeycode = 255;

struct QtKeysym
{
    int qtKey;
    uint keysym;
};

// Function and editing keys of Qt and the keysym a real keyboard sends for them.
constexpr QtKeysym qtKeysyms[] = {
    {Qt::Key_Escape, XKB_KEY_Escape},
    {Qt::Key_Tab, XKB_KEY_Tab},
    {Qt::Key_Backtab, XKB_KEY_ISO_Left_Tab},
    {Qt::Key_Backspace, XKB_KEY_BackSpace},
    {Qt::Key_Return, XKB_KEY_Return},
    {Qt::Key_Enter, XKB_KEY_KP_Enter},
    {Qt::Key_Insert, XKB_KEY_Insert},
    {Qt::Key_Delete, XKB_KEY_Delete},
    {Qt::Key_Pause, XKB_KEY_Pause},
    {Qt::Key_Print, XKB_KEY_Print},
    {Qt::Key_Home, XKB_KEY_Home},
    {Qt::Key_End, XKB_KEY_End},
    {Qt::Key_Left, XKB_KEY_Left},
    {Qt::Key_Up, XKB_KEY_Up},
    {Qt::Key_Right, XKB_KEY_Right},
    {Qt::Key_Down, XKB_KEY_Down},
    {Qt::Key_PageUp, XKB_KEY_Prior},
    {Qt::Key_PageDown, XKB_KEY_Next},
    {Qt::Key_Shift, XKB_KEY_Shift_L},
    {Qt::Key_Control, XKB_KEY_Control_L},
    {Qt::Key_Alt, XKB_KEY_Alt_L},
    {Qt::Key_Meta, XKB_KEY_Super_L},
    {Qt::Key_CapsLock, XKB_KEY_Caps_Lock},
    {Qt::Key_NumLock, XKB_KEY_Num_Lock},
    {Qt::Key_ScrollLock, XKB_KEY_Scroll_Lock},
    {Qt::Key_Menu, XKB_KEY_Menu},
    {Qt::Key_Space, XKB_KEY_space},
};

} // namespace

KeyMapper::KeyMapper(const QString &extraDir, const QString &baseLayout)
    : m_extraDir(extraDir), m_baseLayout(baseLayout.isEmpty() ? QStringLiteral("us") : baseLayout)
{
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (m_context && !m_extraDir.isEmpty())
        xkb_context_include_path_append(m_context, QFile::encodeName(m_extraDir).constData());
    if (m_context && compile(m_baseLayout, QString()))
        findSpareKeycodes();
}

void KeyMapper::findSpareKeycodes()
{
    const xkb_keycode_t max = qMin(xkb_keymap_max_keycode(m_keymap), maxSpareKeycode);
    for (xkb_keycode_t code = max; code >= xkb_keymap_min_keycode(m_keymap); --code) {
        const char *name = xkb_keymap_key_get_name(m_keymap, code);
        if (!name || xkb_keymap_num_layouts_for_key(m_keymap, code) != 0)
            continue;
        m_spare.append(code);
        m_spareNames.append(QByteArray(name));
        if (m_spare.size() == spareKeyCount)
            break;
    }
    if (m_spare.isEmpty())
        qCWarning(lcWindowServer) << "no spare key codes in the keymap" << m_baseLayout;
}

KeyMapper::~KeyMapper()
{
    xkb_keymap_unref(m_keymap);
    xkb_context_unref(m_context);
}

bool KeyMapper::compile(const QString &layout, const QString &variant)
{
    const QByteArray l = layout.toUtf8();
    const QByteArray v = variant.toUtf8();
    xkb_rule_names names = {};
    names.rules = "evdev";
    names.model = "pc105";
    names.layout = l.constData();
    names.variant = v.isEmpty() ? nullptr : v.constData();
    xkb_keymap *keymap = xkb_keymap_new_from_names(m_context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap) {
        qCWarning(lcWindowServer) << "cannot compile keymap" << layout << variant;
        return false;
    }
    xkb_keymap_unref(m_keymap);
    m_keymap = keymap;
    rebuildIndex();
    return true;
}

void KeyMapper::rebuildIndex()
{
    m_byCharacter.clear();
    m_byKeysym.clear();
    const xkb_keycode_t min = xkb_keymap_min_keycode(m_keymap);
    const xkb_keycode_t max = xkb_keymap_max_keycode(m_keymap);
    // Level 1 first, so that a character reachable without Shift is sent without it.
    for (xkb_level_index_t level = 0; level < 2; ++level) {
        for (xkb_keycode_t code = min; code <= max; ++code) {
            const xkb_keysym_t *syms = nullptr;
            const int n = xkb_keymap_key_get_syms_by_level(m_keymap, code, 0, level, &syms);
            if (n != 1)
                continue;
            const Key key{code, level == 1};
            if (!m_byKeysym.contains(syms[0]))
                m_byKeysym.insert(syms[0], key);
            const char32_t ucs4 = xkb_keysym_to_utf32(syms[0]);
            if (ucs4 && !m_byCharacter.contains(ucs4))
                m_byCharacter.insert(ucs4, key);
        }
    }
}

KeyMapper::Key KeyMapper::keyForCharacter(char32_t ucs4) const
{
    return m_byCharacter.value(ucs4);
}

uint KeyMapper::keysymForQtKey(int qtKey)
{
    for (const QtKeysym &entry : qtKeysyms) {
        if (entry.qtKey == qtKey)
            return entry.keysym;
    }
    if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F35)
        return XKB_KEY_F1 + uint(qtKey - Qt::Key_F1);
    return 0;
}

KeyMapper::Key KeyMapper::keyForQtKey(int qtKey) const
{
    if (const uint keysym = keysymForQtKey(qtKey))
        return m_byKeysym.value(keysym);
    if (qtKey > 0x20 && qtKey < 0x7f) {
        // Qt names Latin keys by their upper-case character; the key itself is the
        // unshifted one.
        const char32_t c = QChar::toLower(char32_t(qtKey));
        Key key = m_byCharacter.value(c);
        key.shift = false;
        return key;
    }
    return {};
}

bool KeyMapper::writeSymbols() const
{
    QDir().mkpath(m_extraDir + QStringLiteral("/symbols"));
    QFile file(m_extraDir + QStringLiteral("/symbols/") + layoutName());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    QByteArray bindings;
    for (int i = 0; i < m_extra.size(); ++i) {
        char name[64];
        if (xkb_keysym_get_name(m_extra.at(i), name, sizeof(name)) <= 0)
            continue;
        bindings += "    key <" + m_spareNames.at(i) + "> { [ " + name + " ] };\n";
    }
    // Two identical sections: the compositor only reloads when the layout name changes.
    for (const char *section : {"a", "b"}) {
        file.write("xkb_symbols \"");
        file.write(section);
        file.write("\" {\n    include \"");
        file.write(m_baseLayout.toUtf8());
        file.write("\"\n");
        file.write(bindings);
        file.write("};\n");
    }
    return file.error() == QFile::NoError;
}

uint KeyMapper::keysymForCharacter(char32_t ucs4)
{
    return xkb_utf32_to_keysym(ucs4);
}

KeyMapper::Key KeyMapper::bindExtraKeysym(uint keysym, QString *variant)
{
    if (keysym == XKB_KEY_NoSymbol || m_spare.isEmpty())
        return {};
    const int existing = int(m_extra.indexOf(keysym));
    if (existing >= 0) {
        if (variant)
            *variant = m_variantA ? QStringLiteral("a") : QStringLiteral("b");
        return Key{m_spare.at(existing), false};
    }
    // Slots are reused round-robin; a character is pressed and released before the next
    // one is bound, so overwriting the oldest binding never changes a key that is down.
    const int slot = m_nextSlot;
    m_nextSlot = (m_nextSlot + 1) % int(m_spare.size());
    if (slot < m_extra.size())
        m_extra[slot] = keysym;
    else
        m_extra.append(keysym);
    m_variantA = !m_variantA;
    const QString v = m_variantA ? QStringLiteral("a") : QStringLiteral("b");
    if (!writeSymbols() || !compile(layoutName(), v))
        return {};
    // What the clients will read: the code must give the keysym, or the client types
    // something else.
    const xkb_keysym_t *syms = nullptr;
    const xkb_keycode_t code = m_spare.at(slot);
    if (xkb_keymap_key_get_syms_by_level(m_keymap, code, 0, 0, &syms) != 1 || syms[0] != keysym) {
        qCWarning(lcWindowServer) << "spare key" << code << "does not give keysym" << Qt::hex
                                  << keysym;
        return {};
    }
    if (variant)
        *variant = v;
    return Key{code, false};
}
