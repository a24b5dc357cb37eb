#pragma once

#include <string>

namespace Zarn {

class AccountManager;
class HttpRequest;
class MountManager;

// The console's accounts and the rights of each account on each mount. Every change goes
// through AccountManager, which applies it at once and saves the settings file. The
// anonymous visitor's account is always there: it can be given rights but no password,
// and cannot be renamed or removed. One object per request, on a console connection
// thread.
class ConsoleAccountsApi {
public:
    ConsoleAccountsApi(MountManager& mounts, AccountManager& accounts)
        : mounts_(mounts), accounts_(accounts) {}

    void SendAccounts(HttpRequest& request);
    void Add(HttpRequest& request);
    void SetPassword(HttpRequest& request);
    void Rename(HttpRequest& request);
    void Remove(HttpRequest& request);
    void SendRights(HttpRequest& request);
    // Granting the administration bit (deleting through the web pages) must come with
    // confirmAdmin=1, so that no slip of a checkbox hands it out.
    void SetRights(HttpRequest& request);

private:
    // The account named by the form's field; false (with a 404 sent) when there is none.
    bool FindAccount(HttpRequest& request, const char* field, std::string& name);
    // The same for the form's "name", refusing the anonymous visitor's account, which is
    // never renamed or removed.
    bool FindOwnAccount(HttpRequest& request, std::string& name);
    // A name a new or renamed account may take; false (with the refusal sent) when not.
    bool CheckNewName(HttpRequest& request, const char* field, const std::string& name);
    // Creates the account or sets its password, and answers with the account.
    void StorePassword(HttpRequest& request, const std::string& name);
    void SendAccount(HttpRequest& request, const std::string& name);

    MountManager& mounts_;
    AccountManager& accounts_;
};

}  // namespace Zarn
