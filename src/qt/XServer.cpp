#include "XServer.hpp"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace quorbin {

namespace {

constexpr std::string_view TraySelection = "_NET_SYSTEM_TRAY_S0";

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};

xcb_connection_t* Connection() {
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return x11 == nullptr ? nullptr : x11->connection();
}

}  // namespace

bool EmbeddingTrayRuns() {
  xcb_connection_t* const connection = Connection();
  if (connection == nullptr) return false;
  const std::unique_ptr<xcb_intern_atom_reply_t, Free> selection(xcb_intern_atom_reply(
      connection, xcb_intern_atom(connection, 0, TraySelection.size(), TraySelection.data()),
      nullptr));
  if (!selection) return false;
  const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> tray(xcb_get_selection_owner_reply(
      connection, xcb_get_selection_owner(connection, selection->atom), nullptr));
  return tray && tray->owner != XCB_WINDOW_NONE;
}

bool IsAnnouncement(const void* xcbEvent) {
  constexpr unsigned SentByClient = 0x80;
  xcb_connection_t* const connection = Connection();
  const auto* message = static_cast<const xcb_client_message_event_t*>(xcbEvent);
  return connection != nullptr && (message->response_type & ~SentByClient) == XCB_CLIENT_MESSAGE &&
         message->window == xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
}

}  // namespace quorbin
