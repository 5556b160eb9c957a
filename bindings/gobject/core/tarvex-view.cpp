#include "tarvex-view.h"

#include "private.h"

struct _TarvexView {
    GObject parent_instance;
    std::shared_ptr<tarvex::View>* view;
};

G_DEFINE_FINAL_TYPE(TarvexView, tarvex_view, G_TYPE_OBJECT)

static void tarvex_view_init(TarvexView* self) {
    self->view = new std::shared_ptr<tarvex::View>(tarvex::makeHeadlessView());
}

static void tarvex_view_finalize(GObject* object) {
    delete TARVEX_VIEW(object)->view;
    G_OBJECT_CLASS(tarvex_view_parent_class)->finalize(object);
}

static void tarvex_view_class_init(TarvexViewClass* type) {
    G_OBJECT_CLASS(type)->finalize = tarvex_view_finalize;
}

TarvexView* tarvex_view_new() {
    return TARVEX_VIEW(g_object_new(TARVEX_TYPE_VIEW, nullptr));
}

TarvexView* tarvex_private_view(const std::shared_ptr<tarvex::View>& view) {
    TarvexView* made = tarvex_view_new();
    *made->view = view;
    return made;
}

const std::shared_ptr<tarvex::View>& tarvex::glib::viewIn(TarvexView* view) {
    return *view->view;
}
