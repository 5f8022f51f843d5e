#pragma once

#include <QHash>
#include <QList>
#include <QString>

struct xkb_context;
struct xkb_keymap;

// Knows which key of the compositor's keymap produces a character or a Qt key, so that
// synthetic input can be sent to clients as real key presses with the right modifier state.
// Characters and keys the keymap lacks are bound to spare key codes through a small symbols
// file of our own that extends the base layout; the compositor then switches to that layout.
// Spare means bound to nothing in the base keymap: the rules put the multimedia keys
// (inet) after the layout, and those override whatever the layout binds to their codes.
class KeyMapper
{
public:
    struct Key
    {
        uint keycode = 0; // xkb key code (evdev code + 8); 0 when there is none
        bool shift = false;
        bool isValid() const { return keycode != 0; }
    };

    // extraDir is the private directory named by XKB_CONFIG_EXTRA_PATH; the layout is the
    // base layout that the extra bindings include (for instance "us").
    KeyMapper(const QString &extraDir, const QString &baseLayout);
    ~KeyMapper();
    KeyMapper(const KeyMapper &) = delete;
    KeyMapper &operator=(const KeyMapper &) = delete;

    bool isValid() const { return m_keymap != nullptr; }

    // The key producing this character in the current keymap (base or extra bindings).
    Key keyForCharacter(char32_t ucs4) const;
    // The key for a Qt key code: function and editing keys by their keysym, Latin keys
    // through their character (lower case unless shift is asked for by the caller).
    Key keyForQtKey(int qtKey) const;

    // The keysym a real keyboard sends for a Qt key code, 0 for none.
    static uint keysymForQtKey(int qtKey);

    // Binds a keysym to a spare key code, rewriting the symbols file. Returns the key, and in
    // variant the name of the layout variant the compositor must switch to (it alternates, so
    // every rewrite is a change the compositor notices). Reuses a binding that still exists.
    Key bindExtraKeysym(uint keysym, QString *variant);
    static uint keysymForCharacter(char32_t ucs4);

    QString layoutName() const { return QStringLiteral("tideshell"); }

private:
    bool compile(const QString &layout, const QString &variant);
    void findSpareKeycodes();
    void rebuildIndex();
    bool writeSymbols() const;

    QString m_extraDir;
    QString m_baseLayout;
    xkb_context *m_context = nullptr;
    xkb_keymap *m_keymap = nullptr;
    QHash<char32_t, Key> m_byCharacter;
    QHash<uint, Key> m_byKeysym;
    QList<uint> m_spare; // key codes bound to nothing in the base keymap
    QList<QByteArray> m_spareNames;
    QList<uint> m_extra; // keysyms bound to the spare codes, slot by slot
    int m_nextSlot = 0;
    bool m_variantA = false;
};
