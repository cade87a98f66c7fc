// Placeholder translation unit for a layer that has no sources yet, so that
// the object library stays valid while the layer is being written.
namespace xmldsig_detail {
int emptyLayerAnchor = 0;
}
