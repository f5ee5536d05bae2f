#include "MessagesService.h"

#include "Params.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Json/Json.h>
#include <iostream>

namespace ZelHost {

MessagesService::MessagesService(std::shared_ptr<Database> database)
    : Service("Messages"), m_database(std::move(database)) {
    addInterface("IMessages");
    on("send", [this](const Zel::Variant& params) {
        const std::string channel = stringParam(params, "channel");
        const std::string text = stringParam(params, "text");
        if (channel.empty() || channel.size() > 200) badParameter("channel");
        const std::string data = anyParam(params, "data").toJson();
        auto connection = m_database->acquire();
        connection->begin();
        const std::int64_t id = m_database->nextMessageId(*connection);
        connection->execute("INSERT INTO zelMessages (id, channel, msgText, msgData) VALUES (?, ?, ?, ?)",
                            {id, channel, text, data});
        connection->commit();
        std::cerr << "zel-host: message #" << id << " on " << channel << ": " << text << '\n';
        return id;
    });
    on("list", [this](const Zel::Variant& params) {
        const std::string channel = stringParam(params, "channel");
        auto connection = m_database->acquire();
        Zel::Variant messages = Zel::Variant::makeVector();
        for (auto rows = connection->query(
                 "SELECT id, msgText, msgData FROM zelMessages WHERE channel = ? ORDER BY id", {channel});
             !rows->eof(); rows->next()) {
            Zel::Variant message = Zel::Variant::makeMap();
            message.setAt("id", rows->value(0));
            message.setAt("text", rows->value(1));
            message.setAt("data", Zel::Json::parse(static_cast<std::string>(rows->value(2))));
            messages.push_back(std::move(message));
        }
        return messages;
    });
}

} // namespace ZelHost
