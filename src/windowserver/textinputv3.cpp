#include "textinputv3.h"

#include <QtWaylandCompositor/QWaylandCompositor>
#include <QtWaylandCompositor/QWaylandSeat>

#include <QLoggingCategory>
#include <QPointer>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

// All text-input objects of all clients, one resource each. State a client sets is
// double-buffered and takes effect on its commit request; the count of commits is the serial
// every done event must carry.
class TextInputsV3 : public QtWaylandServer::zwp_text_input_v3
{
public:
    struct Input : Resource
    {
        bool pendingEnabled = false;
        bool enabled = false;
        uint32_t commits = 0;
        QPointer<QWaylandSurface> entered; // the surface it was told about with enter
    };

    // Tells every text input of the surface's client that it now has the focus, and those of
    // the previous focus that they lost it. Calling it again with the same surface only
    // tells text inputs made since.
    void focus(QWaylandSurface *surface)
    {
        m_focus = surface;
        const auto all = resourceMap();
        for (Resource *r : all) {
            auto *input = static_cast<Input *>(r);
            if (input->entered != surface) {
                if (isAlive(input->entered))
                    send_leave(input->handle, input->entered->resource());
                input->entered = nullptr;
                input->enabled = input->pendingEnabled = false;
            }
            if (isAlive(surface) && !input->entered &&
                input->client() == surface->waylandClient()) {
                send_enter(input->handle, surface->resource());
                input->entered = surface;
            }
        }
    }

    bool commitString(const QString &text)
    {
        if (!isAlive(m_focus))
            return false;
        const auto inputs = resourceMap().values(m_focus->waylandClient());
        bool sent = false;
        for (Resource *r : inputs) {
            auto *input = static_cast<Input *>(r);
            if (input->entered != m_focus || !input->enabled)
                continue;
            send_commit_string(input->handle, text);
            send_done(input->handle, input->commits);
            sent = true;
        }
        return sent;
    }

    QWaylandSurface *focusSurface() const { return m_focus; }

protected:
    Resource *zwp_text_input_v3_allocate() override { return new Input; }
    void zwp_text_input_v3_destroy(Resource *resource) override
    {
        wl_resource_destroy(resource->handle);
    }
    void zwp_text_input_v3_enable(Resource *resource) override
    {
        static_cast<Input *>(resource)->pendingEnabled = true;
    }
    void zwp_text_input_v3_disable(Resource *resource) override
    {
        static_cast<Input *>(resource)->pendingEnabled = false;
    }
    void zwp_text_input_v3_commit(Resource *resource) override
    {
        auto *input = static_cast<Input *>(resource);
        ++input->commits;
        qCDebug(lcWindowServer) << "text-input-v3 commit" << input->commits;
        // A text input without the focus counts its commits and changes nothing else.
        input->enabled = input->entered && input->pendingEnabled;
    }

private:
    static bool isAlive(QWaylandSurface *surface)
    {
        return surface && !surface->isDestroyed() && surface->resource();
    }

    QPointer<QWaylandSurface> m_focus;
};

TextInputManagerV3::TextInputManagerV3(QWaylandCompositor *compositor)
    : QWaylandCompositorExtensionTemplate(compositor), m_inputs(std::make_unique<TextInputsV3>())
{
}

TextInputManagerV3::~TextInputManagerV3() = default;

void TextInputManagerV3::initialize()
{
    QWaylandCompositorExtensionTemplate::initialize();
    auto *compositor = static_cast<QWaylandCompositor *>(extensionContainer());
    init(compositor->display(), 1);
    QWaylandSeat *seat = compositor->defaultSeat();
    connect(seat, &QWaylandSeat::keyboardFocusChanged, this,
            [this](QWaylandSurface *focus) { m_inputs->focus(focus); });
    m_inputs->focus(seat->keyboardFocus());
}

bool TextInputManagerV3::commitString(const QString &text)
{
    return m_inputs->commitString(text);
}

void TextInputManagerV3::zwp_text_input_manager_v3_destroy(Resource *resource)
{
    wl_resource_destroy(resource->handle);
}

void TextInputManagerV3::zwp_text_input_manager_v3_get_text_input(Resource *resource, uint32_t id,
                                                                  struct ::wl_resource *)
{
    // One seat: every text input belongs to it. One made while its client has the focus
    // is told so at once.
    m_inputs->add(resource->client(), id, resource->version());
    m_inputs->focus(m_inputs->focusSurface());
}
