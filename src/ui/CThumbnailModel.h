#pragma once
// The file list as thumbnails: the same rows as the list (filtered and sorted), with a picture's
// thumbnail as its decoration once the loader has it, and a large icon until then or for
// anything else. Thumbnails are asked for only when a view asks for the decoration, that is for
// the items it shows.
#include <QHash>
#include <QIdentityProxyModel>
#include <QPersistentModelIndex>

#include "fs/CNode.h"

namespace kestrin::ui {

class CNodeFilterProxy;
class CThumbnailLoader;

class CThumbnailModel final : public QIdentityProxyModel {
    Q_OBJECT
public:
    CThumbnailModel(CNodeFilterProxy& rows, CThumbnailLoader& loader, QObject* parent = nullptr);
    QVariant data(const QModelIndex& index, int role) const override;
    CNode* NodeOf(const QModelIndex& index) const;

private:
    CNodeFilterProxy& m_rows;
    CThumbnailLoader& m_loader;
    mutable QHash<const CNode*, QPersistentModelIndex> m_asked;
};

} // namespace kestrin::ui
