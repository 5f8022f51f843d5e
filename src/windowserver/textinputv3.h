#pragma once

#include <QtWaylandCompositor/QWaylandCompositorExtensionTemplate>
#include <QtWaylandCompositor/QWaylandSurface>

#include <memory>

#include "qwayland-server-text-input-unstable-v3.h"

class QWaylandCompositor;
class TextInputsV3;

// The zwp_text_input_v3 global that GTK, Chromium, Firefox and foot speak. The shell is the
// input method here: it has no pre-edit to show in the client (the soft keyboard shows its
// own), so all it ever sends is committed text. Text inputs follow the seat's keyboard focus.
class TextInputManagerV3 : public QWaylandCompositorExtensionTemplate<TextInputManagerV3>,
                           public QtWaylandServer::zwp_text_input_manager_v3
{
    Q_OBJECT
public:
    explicit TextInputManagerV3(QWaylandCompositor *compositor);
    ~TextInputManagerV3() override;

    void initialize() override;

    // Commits text to the text input the focused client has enabled on the focused surface.
    // False when there is none, so the caller types the text some other way.
    bool commitString(const QString &text);

protected:
    void zwp_text_input_manager_v3_destroy(Resource *resource) override;
    void zwp_text_input_manager_v3_get_text_input(Resource *resource, uint32_t id,
                                                  struct ::wl_resource *seat) override;

private:
    std::unique_ptr<TextInputsV3> m_inputs;
};
