#include <Zel/Json/Json.h>
#include <Zel/Variant.h>

#include <iostream>

int main() {
    Zel::Variant document = Zel::Json::parse(R"({"name":"zel","tags":["json","variant"]})");
    document.setAt("installed", true);
    const std::string json = document.toJson();
    std::cout << json << '\n';
    return json == R"({"installed":true,"name":"zel","tags":["json","variant"]})" ? 0 : 1;
}
