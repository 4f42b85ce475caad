// What the duplication double refuses about textures, copies, mappings and references, as Windows does.
#include "tests/windows/stream/duplication/raw_desktop.h"

namespace vlk::test {
namespace {

using TextureChecks = RawDesktopTest;

std::uint8_t first_byte(const RawDesktop& raw, ID3D11Texture2D* texture) {
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  EXPECT_EQ(raw.context->Map(texture, 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  const std::uint8_t byte = *static_cast<const std::uint8_t*>(mapped.pData);
  raw.context->Unmap(texture, 0);
  return byte;
}

TEST_F(TextureChecks, EachArgumentOfAStagingTextureIsChecked) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  using Desc = D3D11_TEXTURE2D_DESC;
  const struct {
    const char* what;
    void (*spoil)(Desc&);
  } rows[] = {
      {"no width", [](Desc& d) { d.Width = 0; }},
      {"no height", [](Desc& d) { d.Height = 0; }},
      {"too wide", [](Desc& d) { d.Width = 16385; }},
      {"too high", [](Desc& d) { d.Height = 16385; }},
      {"two levels", [](Desc& d) { d.MipLevels = 2; }},
      {"all levels", [](Desc& d) { d.MipLevels = 0; }},
      {"two elements", [](Desc& d) { d.ArraySize = 2; }},
      {"no element", [](Desc& d) { d.ArraySize = 0; }},
      {"four samples", [](Desc& d) { d.SampleDesc.Count = 4; }},
      {"no sample", [](Desc& d) { d.SampleDesc.Count = 0; }},
      {"sample quality", [](Desc& d) { d.SampleDesc.Quality = 1; }},
      {"no format", [](Desc& d) { d.Format = DXGI_FORMAT_UNKNOWN; }},
      {"another format", [](Desc& d) { d.Format = DXGI_FORMAT_R8G8B8A8_UNORM; }},
      {"usage", [](Desc& d) { d.Usage = D3D11_USAGE_DEFAULT; }},
      {"bound", [](Desc& d) { d.BindFlags = D3D11_BIND_RENDER_TARGET; }},
      {"no access", [](Desc& d) { d.CPUAccessFlags = 0; }},
      {"write access", [](Desc& d) { d.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE; }},
      {"shared", [](Desc& d) { d.MiscFlags = D3D11_RESOURCE_MISC_SHARED; }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Desc desc = raw.StagingOfPicture();
    row.spoil(desc);
    EXPECT_FALSE(raw.Create(desc));
    ExpectMisuse(DesktopMisuse::TextureDescription);
  }
  const Desc good = raw.StagingOfPicture();
  const D3D11_SUBRESOURCE_DATA initial = {&good, 4, 4};
  ComPtr<ID3D11Texture2D> texture;
  EXPECT_EQ(raw.device->CreateTexture2D(&good, &initial, texture.ReleaseAndGetAddressOf()), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::TextureDescription);
  EXPECT_EQ(raw.device->CreateTexture2D(nullptr, nullptr, texture.ReleaseAndGetAddressOf()), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::NullArgument);
  EXPECT_TRUE(raw.Create(good));
}

TEST_F(TextureChecks, CopyNeedsTexturesOfOneDeviceAndOneSize) {
  set_outputs({{0, 0, 320, 180}, {320, 0, 320, 180}});
  RawDesktop raw = OpenDuplicated();
  const RawDesktop other = Open(1);
  ASSERT_EQ(raw.Acquire(), S_OK);
  D3D11_TEXTURE2D_DESC desc = raw.StagingOfPicture();
  const auto staging = raw.Create(desc), second = raw.Create(desc), foreign = other.Create(desc);
  ++desc.Width;
  const auto wider = raw.Create(desc);
  const struct {
    const char* what;
    ID3D11Texture2D *to, *from;
  } rows[] = {
      {"wider", wider.Get(), raw.picture.Get()},
      {"to another device", foreign.Get(), raw.picture.Get()},
      {"from another device", staging.Get(), foreign.Get()},
      {"to itself", staging.Get(), staging.Get()},
      {"to the desktop", raw.picture.Get(), staging.Get()},
      {"between staging textures", staging.Get(), second.Get()},
      {"to nothing", nullptr, raw.picture.Get()},
      {"from nothing", staging.Get(), nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    raw.context->CopyResource(row.to, row.from);
    ExpectMisuse(DesktopMisuse::CopyArguments);
  }
  EXPECT_EQ(first_byte(raw, staging.Get()), 0) << "a refused call copies nothing";
  raw.context->CopyResource(staging.Get(), raw.picture.Get());
  EXPECT_EQ(first_byte(raw, staging.Get()), 255);
}

TEST_F(TextureChecks, MappedTextureMustNotBeCopied) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  const auto staging = raw.Create(raw.StagingOfPicture());
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  ASSERT_EQ(raw.context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  raw.context->CopyResource(staging.Get(), raw.picture.Get());
  ExpectMisuse(DesktopMisuse::CopyWhileMapped);
  EXPECT_EQ(*static_cast<const std::uint8_t*>(mapped.pData), 0);
  raw.context->Unmap(staging.Get(), 0);
}

TEST_F(TextureChecks, TextureOfAReleasedFrameMustNotBeCopied) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  const auto staging = raw.Create(raw.StagingOfPicture());
  EXPECT_EQ(raw.duplication->ReleaseFrame(), S_OK);
  raw.context->CopyResource(staging.Get(), raw.picture.Get());
  ExpectMisuse(DesktopMisuse::ReleasedFrameUsed);
  EXPECT_EQ(first_byte(raw, staging.Get()), 0);
}

TEST_F(TextureChecks, MappingsMustBalance) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  auto staging = raw.Create(raw.StagingOfPicture());
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  raw.context->Unmap(staging.Get(), 0);
  ExpectMisuse(DesktopMisuse::NotMapped);
  EXPECT_EQ(raw.context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  EXPECT_EQ(raw.context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::MappedTwice);
  EXPECT_EQ(mapped.pData, nullptr);
  staging.Reset();
  ExpectMisuse(DesktopMisuse::ReleasedWhileMapped);
}

TEST_F(TextureChecks, EachArgumentOfAMappingIsChecked) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  const auto staging = raw.Create(raw.StagingOfPicture());
  const struct {
    const char* what;
    ID3D11Texture2D* texture;
    UINT subresource;
    D3D11_MAP type;
    UINT flags;
  } rows[] = {
      {"no texture", nullptr, 0, D3D11_MAP_READ, 0},
      {"the desktop's texture", raw.picture.Get(), 0, D3D11_MAP_READ, 0},
      {"subresource", staging.Get(), 1, D3D11_MAP_READ, 0},
      {"type", staging.Get(), 0, D3D11_MAP_WRITE, 0},
      {"flags", staging.Get(), 0, D3D11_MAP_READ, D3D11_MAP_FLAG_DO_NOT_WAIT},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    EXPECT_EQ(raw.context->Map(row.texture, row.subresource, row.type, row.flags, &mapped), E_INVALIDARG);
    ExpectMisuse(DesktopMisuse::MapArguments);
  }
}

TEST_F(TextureChecks, DeviceLivesAsLongAsItsChildren) {
  RawDesktop raw = OpenDuplicated();
  ASSERT_EQ(raw.Acquire(), S_OK);
  auto staging = raw.Create(raw.StagingOfPicture());
  raw = {};
  // The device, its adapter and the adapter's factory.
  EXPECT_EQ(board_.live, 4) << "with the texture";
  EXPECT_EQ(board_.references, 1);
  IUnknown* const texture = staging.Get();
  EXPECT_EQ(texture->AddRef(), 2u);
  EXPECT_EQ(board_.references, 2);
  EXPECT_EQ(texture->Release(), 1u);
  staging.Reset();
  EXPECT_EQ(board_.live, 0);
}

TEST_F(TextureChecks, ReleaseWithoutAReferenceIsRecorded) {
  RawDesktop raw = OpenDuplicated();
  ID3D11Device* const device = raw.device.Detach();
  device->Release();
  device->Release();  // the context and the duplication keep the device alive
  ExpectMisuse(DesktopMisuse::ReleasedTooOften);
}

}  // namespace
}  // namespace vlk::test
